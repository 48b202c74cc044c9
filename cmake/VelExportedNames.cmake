# Lets a shared library export the names that its map file lists, and no others.
function(vel_export_only target map)
    set(map ${CMAKE_CURRENT_SOURCE_DIR}/${map})
    target_link_options(${target} PRIVATE LINKER:--version-script=${map})
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
endfunction()
