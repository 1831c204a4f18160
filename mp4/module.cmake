# The Perforce provider and the loadable module liborvane-em-p4.so.
add_library(orvane-mp4-provider STATIC
    ${CMAKE_CURRENT_LIST_DIR}/MP4Provider.cpp
    ${CMAKE_CURRENT_LIST_DIR}/MP4StreamDiscovery.cpp
    ${CMAKE_CURRENT_LIST_DIR}/MP4ChangeEnumeration.cpp
    ${CMAKE_CURRENT_LIST_DIR}/MP4Clients.cpp
)
set_target_properties(orvane-mp4-provider PROPERTIES POSITION_INDEPENDENT_CODE ON)
target_link_libraries(orvane-mp4-provider PUBLIC orvane-mp4)

# Everything the module holds is hidden but its two exports, so that none of
# it can clash with a host's own symbols.
foreach(part orvane-mce orvane-mp4 orvane-mp4-provider)
    set_target_properties(${part} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
endforeach()

add_library(orvane-em-p4 MODULE ${CMAKE_CURRENT_LIST_DIR}/MP4Module.cpp)
target_link_libraries(orvane-em-p4 PRIVATE orvane-mp4-provider)
target_link_options(orvane-em-p4 PRIVATE
    -Wl,--version-script=${CMAKE_CURRENT_LIST_DIR}/module.map
    -Wl,--exclude-libs,ALL
    -Wl,--no-undefined)
set_target_properties(orvane-em-p4 PROPERTIES
    PREFIX "lib"
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    LINK_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/module.map
    INSTALL_RPATH "$ORIGIN/..")
install(TARGETS orvane-em-p4 LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/orvane)
