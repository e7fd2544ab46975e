# libsoftware.so.0: the host loads it and sees exactly the 16 entry points of
# exports.map. They stand here, above every layer, because they create the
# concrete component. Every layer is linked whole so that the class registration
# objects (_init_<Class>) and the host settings singleton's initialiser are kept
# even though nothing in the library refers to them. Dependents come before what they
# use, so that no layer is listed (and linked whole) twice.
set(ZEV_COMPONENT_LAYERS
  zev_softwarelist zev_collector zev_component_base zev_component_records zev_inventory zev_support zev_message zev_archive)

add_library(software SHARED ${CMAKE_CURRENT_SOURCE_DIR}/exports.cpp ${CMAKE_CURRENT_SOURCE_DIR}/ImagePin.cpp)
set_target_properties(software PROPERTIES
  OUTPUT_NAME software
  SOVERSION 0
  VERSION ${PROJECT_VERSION}
  LINK_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/exports.map)
list(JOIN ZEV_COMPONENT_LAYERS "," _zev_layers)
target_link_libraries(software PRIVATE
  "$<LINK_LIBRARY:WHOLE_ARCHIVE,${_zev_layers}>"
  ZLIB::ZLIB Threads::Threads ${CMAKE_DL_LIBS} zev_settings)
# The layers also arrive as each other's dependencies; link them whole there too.
foreach(_layer IN LISTS ZEV_COMPONENT_LAYERS)
  set_property(TARGET software PROPERTY LINK_LIBRARY_OVERRIDE_${_layer} WHOLE_ARCHIVE)
endforeach()
target_link_options(software PRIVATE
  "LINKER:--version-script=${CMAKE_CURRENT_SOURCE_DIR}/exports.map"
  "LINKER:--exclude-libs,ALL")
