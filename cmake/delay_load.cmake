# Delay-loaded system DLLs of the Windows build.
#
# An installer is often started from a Downloads folder, elevated. The
# loader looks for a DLL that isn't a KnownDLL in the program's own folder
# first, so a planted DLL of such a name beside the installer (or beside the
# uninstaller's copy in the temporary folder) would run as administrator.
# Only KnownDLLs stay in the import table: each DLL below is delay-loaded,
# at its first call, and by then the program's start (dll_search_windows.cpp)
# has restricted the search to the system folder.
#
# QLUX_DELAY_LOADED: the DLLs, as "<import library name>:<DLL file name>".
# comctl32 is not a KnownDLL either: the manifest's common controls 6 come
# from the side-by-side store, and any other comctl32 from the system folder.
# comdlg32 is a KnownDLL, delay-loaded all the same: only the window's
# dialogs call it, so console runs don't load it, nor the common controls
# and the print spooler that it loads in turn.
set(QLUX_DELAY_LOADED
  comctl32:comctl32.dll
  comdlg32:comdlg32.dll
  oleacc:oleacc.dll
  uxtheme:uxtheme.dll
  version:version.dll
  winhttp:winhttp.dll
  winmm:winmm.dll
  winspool:winspool.drv)

find_program(QLUX_NM NAMES x86_64-w64-mingw32-nm REQUIRED)
find_program(QLUX_DLLTOOL NAMES x86_64-w64-mingw32-dlltool REQUIRED)

set(delay_libraries)
set(QLUX_DELAY_LOADED_LIBS)
foreach(entry ${QLUX_DELAY_LOADED})
  string(REPLACE ":" ";" parts "${entry}")
  list(GET parts 0 lib)
  list(GET parts 1 dll)
  find_library(QLUX_IMPORT_${lib} NAMES lib${lib}.a REQUIRED)
  set(output ${CMAKE_BINARY_DIR}/delayload/lib${lib}_delay.a)
  add_custom_command(OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -DNM=${QLUX_NM} -DDLLTOOL=${QLUX_DLLTOOL}
            -DIMPORT_LIBRARY=${QLUX_IMPORT_${lib}} -DDLL=${dll}
            -DDEF=${CMAKE_BINARY_DIR}/delayload/${lib}.def -DOUTPUT=${output}
            -P ${CMAKE_SOURCE_DIR}/cmake/make_delay_import.cmake
    DEPENDS ${CMAKE_SOURCE_DIR}/cmake/make_delay_import.cmake ${QLUX_IMPORT_${lib}}
    COMMENT "Delay-import library for ${dll}")
  list(APPEND delay_libraries ${output})
  list(APPEND QLUX_DELAY_LOADED_LIBS ${lib} -l${lib})
endforeach()
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/delayload)
add_custom_target(qlux_delay_import_libraries DEPENDS ${delay_libraries})

# Link this instead of the DLLs' import libraries; it comes last on the line
# so that the libraries before it find its thunks.
add_library(qlux_delay_imports INTERFACE)
add_dependencies(qlux_delay_imports qlux_delay_import_libraries)
target_link_libraries(qlux_delay_imports INTERFACE ${delay_libraries})
