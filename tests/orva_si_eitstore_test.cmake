# What the event store asks of the filter layer and tells the client is written down; so are the
# sizes of what it frees.
foreach(function Si_SectFlt_UpdateEit Si_SectFlt_UpdateEitLastTableId Orva_Si_NotifyEit g_slice_free1)
    target_link_options(${name} PRIVATE -Wl,--wrap=${function})
endforeach()
