# Where a section leaves the reception path.
target_link_options(${name} PRIVATE -Wl,--wrap=Si_Model_ProcessModel)
