# Tests of the built libsoftware.so.0: its symbol tables, and the entry points
# driven through dlopen as the agent does. The test programs define the host
# symbols (zev_hostshim) and export them so that the library binds to them; they
# carry their own copy of the message, archive and inventory code, as a host does.

# The built library opened once per process through the shared host loader; used by tests/softwarelist too.
add_library(zev_libraryhost INTERFACE)
target_include_directories(zev_libraryhost INTERFACE ${CMAKE_CURRENT_SOURCE_DIR})
target_compile_definitions(zev_libraryhost INTERFACE ZEV_LIBSOFTWARE_PATH="$<TARGET_FILE:software>")
target_link_libraries(zev_libraryhost INTERFACE zev_hostshim zev_component_base)
add_dependencies(zev_libraryhost software)

add_executable(test_component_exports ExportsTest.cpp)
target_link_libraries(test_component_exports PRIVATE
  zev_libraryhost zev_component_base zev_hostshim zev_testutil zev_settings GTest::gtest_main)
set_target_properties(test_component_exports PROPERTIES ENABLE_EXPORTS ON)
# The library cannot be revived once unloaded: one process per test.
gtest_discover_tests(test_component_exports)

# The dynamic symbol table holds exactly the entry points; only the runtime, zlib
# and the three host symbols stay undefined.
if(ZEV_SANITIZE OR ZEV_TSAN)
  set(_zev_sanitized --sanitized)
endif()
add_test(NAME component.library_symbols
  COMMAND python3 ${CMAKE_CURRENT_SOURCE_DIR}/check_symbols.py
          $<TARGET_FILE:software> ${_zev_sanitized})

# A host with settings state of its own, unknown to the component, built as the -dev package's
# hosts are (zev_host): loading, running, shutting down and unloading the library leave its state
# alone; an unload unmaps the library unless the host keeps a reply, which it can still destroy.
add_executable(component_foreign_host ForeignHost.cpp)
target_link_libraries(component_foreign_host PRIVATE zev_hostshim zev_host zev_testutil zev_settings)
set_target_properties(component_foreign_host PROPERTIES ENABLE_EXPORTS ON)
add_dependencies(component_foreign_host software)
add_test(NAME component.foreign_host COMMAND component_foreign_host $<TARGET_FILE:software>)
