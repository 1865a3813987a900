# The installer program as users get it: qlux_installer_program(TARGET).
#
# - Windows: the resources (manifest, version information, icon, and the
#   toolkit's own resources where the build has the window), the start that
#   restricts the DLL search (platform/windows/dll_search.cpp), and the load
#   configuration entry that points at it.
# - Both systems: the program is stripped of its debug information, which
#   goes into a copy beside it (qlux-setup.debug, qlux-setup.exe.debug) that
#   the stripped program names through .gnu_debuglink; a debugger given the
#   program finds it there. The sanitizer build keeps its symbols for its
#   reports.

# The program's own version, for the version information and --version.
configure_file(${CMAKE_SOURCE_DIR}/cmake/qlux_version.h.in ${CMAKE_BINARY_DIR}/generated/qlux_version.h @ONLY)

function(qlux_installer_program target)
  if(WIN32)
    set(QLUX_VERSION_COMMAS "${PROJECT_VERSION_MAJOR},${PROJECT_VERSION_MINOR},${PROJECT_VERSION_PATCH},0")
    set(QLUX_VERSION_QUAD "${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}.${PROJECT_VERSION_PATCH}.0")
    set(resources ${CMAKE_SOURCE_DIR}/app/resources)
    set(generated ${CMAKE_BINARY_DIR}/generated)
    set(QLUX_ICON_FILE ${resources}/qlux-setup.ico)
    set(QLUX_MANIFEST_FILE ${generated}/qlux-setup.manifest)
    configure_file(${resources}/qlux-setup.manifest.in ${QLUX_MANIFEST_FILE} @ONLY)
    configure_file(${resources}/qlux-setup.rc.in ${generated}/qlux-setup.rc @ONLY)

    # windres is called directly: the compiler options that CMake would hand
    # to the resource compiler are C++ options.
    set(rc_flags --define QLUX_WITH_GUI=0)
    if(QLUX_HAS_GUI)
      execute_process(COMMAND sh ${QLUX_WIN_DEPS}/bin/wx-config --static=yes --cxxflags
                      OUTPUT_VARIABLE wx_flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
      separate_arguments(wx_flags UNIX_COMMAND "${wx_flags}")
      set(rc_flags --define QLUX_WITH_GUI=1)
      foreach(flag ${wx_flags})
        if(flag MATCHES "^-[ID]")
          list(APPEND rc_flags ${flag})
        endif()
      endforeach()
    endif()
    set(object ${CMAKE_CURRENT_BINARY_DIR}/${target}_resources.o)
    add_custom_command(OUTPUT ${object}
      COMMAND ${CMAKE_RC_COMPILER} ${rc_flags} -O coff -i ${generated}/qlux-setup.rc -o ${object}
      DEPENDS ${generated}/qlux-setup.rc ${QLUX_MANIFEST_FILE} ${QLUX_ICON_FILE}
      COMMENT "Resources of ${target}")
    target_sources(${target} PRIVATE ${object} ${CMAKE_SOURCE_DIR}/platform/windows/dll_search.cpp)
    # Nothing in the code refers to the load configuration: the loader finds
    # it through the data directory that the step below fills in. Named as a
    # root, it survives the linker's --gc-sections.
    target_link_options(${target} PRIVATE -Wl,--require-defined=_load_config_used)

    find_program(QLUX_PYTHON NAMES python3 REQUIRED)
    find_program(QLUX_TARGET_NM NAMES x86_64-w64-mingw32-nm REQUIRED)
    add_custom_command(TARGET ${target} POST_BUILD
      COMMAND ${QLUX_PYTHON} ${CMAKE_SOURCE_DIR}/cmake/pe_load_config.py ${QLUX_TARGET_NM} $<TARGET_FILE:${target}>
      COMMENT "Load configuration of ${target}")
  endif()

  if(NOT QLUX_SANITIZE)
    if(NOT CMAKE_OBJCOPY)
      message(FATAL_ERROR "objcopy is missing: the installer program can't be stripped")
    endif()
    add_custom_command(TARGET ${target} POST_BUILD
      COMMAND ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:${target}> $<TARGET_FILE:${target}>.debug
      COMMAND ${CMAKE_OBJCOPY} --strip-all --add-gnu-debuglink=$<TARGET_FILE:${target}>.debug
              $<TARGET_FILE:${target}>
      COMMENT "Stripping ${target}; its debug information goes to $<TARGET_FILE_NAME:${target}>.debug")
  endif()
endfunction()
