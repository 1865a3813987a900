# cmake -DNM=... -DDLLTOOL=... -DIMPORT_LIBRARY=... -DDLL=... -DDEF=... -DOUTPUT=...
#        -P make_delay_import.cmake
# Makes a delay-import library for DLL from the toolchain's ordinary import
# library: every function that the import library offers (a symbol with
# its __imp_ twin; data exports have no thunk and can't be delay-loaded)
# goes into a module definition, from which dlltool writes the library.
execute_process(COMMAND ${NM} ${IMPORT_LIBRARY} OUTPUT_VARIABLE symbols RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${NM} ${IMPORT_LIBRARY} failed")
endif()
string(REGEX MATCHALL "[0-9a-f]+ T [A-Za-z_][A-Za-z0-9_@]*" functions "${symbols}")
set(exports "")
foreach(line ${functions})
  string(REGEX REPLACE "^[0-9a-f]+ T " "" name "${line}")
  string(FIND "${symbols}" " I __imp_${name}\n" twin)
  if(NOT twin EQUAL -1)
    list(APPEND exports "${name}")
  endif()
endforeach()
list(REMOVE_DUPLICATES exports)
list(SORT exports)
list(LENGTH exports count)
if(count EQUAL 0)
  message(FATAL_ERROR "${IMPORT_LIBRARY} offers no functions")
endif()
string(REPLACE ";" "\n  " listed "${exports}")
file(WRITE ${DEF} "LIBRARY ${DLL}\nEXPORTS\n  ${listed}\n")
# dlltool names its symbols after the output's path: it runs in the output's
# folder, so that no build path gets into them.
get_filename_component(folder ${OUTPUT} DIRECTORY)
get_filename_component(name ${OUTPUT} NAME)
execute_process(COMMAND ${DLLTOOL} --input-def ${DEF} --output-delaylib ${name}
                WORKING_DIRECTORY ${folder} RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${DLLTOOL} failed for ${DLL}")
endif()
