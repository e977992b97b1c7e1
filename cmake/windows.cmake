# The Windows side of the build, included by CMakeLists.txt when WIN32 (see docs/windows.md):
#  - Boost's headers for a cross build, through a directory holding only a `boost` link, so that
#    the host's /usr/include (glibc) never comes before MinGW's own headers;
#  - GoogleTest built from source with the cross compiler;
#  - the module-definition file of kavrel15_lumo, written at build time from the export table
#    include/kavrel/exports.inc (cmake/exports.cmake);
#  - kavrel_windows_host_test(): the host test program of tests/windows/, which loads the DLL.

# glibc declares M_PI and the other <cmath> constants in every C++ build; MinGW's headers do so
# only on request. The same sources must compile on both.
add_compile_definitions(_USE_MATH_DEFINES)

set(KAVREL_BOOST_HOST_INCLUDE /usr/include CACHE PATH "Directory holding the boost/ header tree (cross builds)")
set(KAVREL_GTEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest sources for cross builds")

if(CMAKE_CROSSCOMPILING)
  set(_kv_cross_include ${CMAKE_BINARY_DIR}/cross-include)
  if(NOT EXISTS ${_kv_cross_include}/boost)
    if(NOT EXISTS ${KAVREL_BOOST_HOST_INCLUDE}/boost/version.hpp)
      message(FATAL_ERROR "Boost headers not found in ${KAVREL_BOOST_HOST_INCLUDE} (install libboost-math-dev)")
    endif()
    file(MAKE_DIRECTORY ${_kv_cross_include})
    file(CREATE_LINK ${KAVREL_BOOST_HOST_INCLUDE}/boost ${_kv_cross_include}/boost SYMBOLIC)
  endif()
  set(Boost_INCLUDE_DIR ${_kv_cross_include} CACHE PATH "Boost headers for the cross build" FORCE)
  set(Boost_NO_BOOST_CMAKE ON)
  set(Boost_NO_SYSTEM_PATHS ON)

  if(KAVREL_TESTS AND NOT TARGET GTest::gtest)
    set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    add_subdirectory(${KAVREL_GTEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
    # The win32 thread model has no std::mutex; GoogleTest's one use of it is replaced through
    # its customisation header (cmake/gtest-win32), found before GoogleTest's own.
    target_include_directories(gtest BEFORE PUBLIC ${CMAKE_SOURCE_DIR}/cmake/gtest-win32)
    if(CMAKE_SIZEOF_VOID_P EQUAL 4)
      target_sources(gtest PRIVATE ${CMAKE_SOURCE_DIR}/cmake/gtest-win32/quiet_debug_output.cpp)
    endif()
    if(NOT TARGET GTest::gtest)
      add_library(GTest::gtest ALIAS gtest)
      add_library(GTest::gtest_main ALIAS gtest_main)
    endif()
  endif()
endif()

# The module-definition file, written from the export table.
set(KAVREL_DEF_FILE ${CMAKE_BINARY_DIR}/kavrel15_lumo.def)
add_custom_command(
  OUTPUT ${KAVREL_DEF_FILE}
  COMMAND ${CMAKE_COMMAND} -DTABLE=${CMAKE_SOURCE_DIR}/include/kavrel/exports.inc -DOUT_DEF=${KAVREL_DEF_FILE}
          -P ${CMAKE_SOURCE_DIR}/cmake/exports.cmake
  DEPENDS ${CMAKE_SOURCE_DIR}/include/kavrel/exports.inc ${CMAKE_SOURCE_DIR}/cmake/exports.cmake
  COMMENT "Writing the export list of kavrel15_lumo"
  VERBATIM)

# The host test: a program that uses only lumowin.dll at link time and reaches the library the
# way the host runtime does, by LoadLibrary and GetProcAddress.
function(kavrel_windows_host_test dir)
  file(GLOB _srcs CONFIGURE_DEPENDS ${dir}/*.cpp)
  if(NOT _srcs OR NOT TARGET GTest::gtest)
    return()
  endif()
  add_executable(test_windows ${_srcs})
  target_include_directories(test_windows PRIVATE ${CMAKE_SOURCE_DIR}/include)
  target_link_libraries(test_windows PRIVATE lumowin GTest::gtest GTest::gtest_main)
  add_dependencies(test_windows kavrel15_lumo)
  add_test(NAME windows COMMAND test_windows)
endfunction()
