# What the dispatcher asks of the filter layer is written down before it is done.
foreach(function Si_SectFlt_UpdatePat Si_SectFlt_UpdateCat Si_SectFlt_UpdatePmt Si_SectFlt_StopPmt
                 Si_SectFlt_StartPmt Si_BG_ResumeService)
    target_link_options(${name} PRIVATE -Wl,--wrap=${function})
endforeach()
