# Writes the export list of kavrel15_lumo from the export definitions themselves, so that a new
# export needs no list edited by hand:
#   cmake -DSRC_DIR=<src/host> -DOUT_DEF=<file.def> -DOUT_INC=<file.inc> -P exports.cmake
# Every `KAVREL_EXPORT void FnName(` in SRC_DIR/export_*.cpp becomes one line of the
# module-definition file (plain, undecorated name) and one KAVREL_EXPORT_NAME(FnName) line of the
# include file that the Windows host test walks. Names are sorted; a name defined twice is an error.
cmake_policy(VERSION 3.18)
if(NOT SRC_DIR OR NOT OUT_DEF)
  message(FATAL_ERROR "exports.cmake: SRC_DIR and OUT_DEF are required")
endif()

file(GLOB _files ${SRC_DIR}/export_*.cpp)
list(SORT _files)
set(_names)
foreach(_file IN LISTS _files)
  file(READ ${_file} _text)
  string(REGEX MATCHALL "KAVREL_EXPORT[ \t\r\n]+void[ \t\r\n]+Fn[A-Za-z0-9_]*[ \t\r\n]*\\(" _defs "${_text}")
  foreach(_def IN LISTS _defs)
    string(REGEX REPLACE ".*[ \t\r\n](Fn[A-Za-z0-9_]*).*" "\\1" _name "${_def}")
    if(_name IN_LIST _names)
      message(FATAL_ERROR "export ${_name} is defined more than once (again in ${_file})")
    endif()
    list(APPEND _names ${_name})
  endforeach()
endforeach()
if(NOT _names)
  message(FATAL_ERROR "no KAVREL_EXPORT definitions found in ${SRC_DIR}/export_*.cpp")
endif()
list(SORT _names)
list(LENGTH _names _count)

set(_def "; Exports of kavrel15_lumo by plain name (${_count}), written from src/host/export_*.cpp.\n")
string(APPEND _def "LIBRARY kavrel15_lumo.dll\nEXPORTS\n")
set(_inc "/* Exports of kavrel15_lumo (${_count}), written from src/host/export_*.cpp. */\n")
foreach(_name IN LISTS _names)
  string(APPEND _def "    ${_name}\n")
  string(APPEND _inc "KAVREL_EXPORT_NAME(${_name})\n")
endforeach()
file(WRITE ${OUT_DEF} "${_def}")
if(OUT_INC)
  file(WRITE ${OUT_INC} "${_inc}")
endif()
