target_link_options(${name} PRIVATE -Wl,--wrap=Orva_Si_IsEqualTableById)
foreach(decoder sdt nit eit)
    target_link_options(${name} PRIVATE -Wl,--wrap=_ZN2si9${decoder}_codecEP11section_ext)
endforeach()
