# Scan mode is as the test says, and the question for the network is listened to.
foreach(function Orva_Si_IsScanMode Orva_Si_GetTsGrpByNetworkId)
    target_link_options(orva_si_ctlhelper_test PRIVATE -Wl,--wrap=${function})
endforeach()
