# Installed layout: everything under lib/hytorc/ of the prefix, laid out like the build
# tree (bin/, plugins/, lib/), so that a program finds its plug-ins (bin/../plugins) and
# its companions (bin/) relative to its own location; bin/ of the prefix links to the programs.
set(HYTORC_INSTALL_ROOT lib/hytorc)
set(CMAKE_INSTALL_RPATH "$ORIGIN/../lib")

# Everything installed, as one target, built by the install itself before it copies: a build
# of one program (scripts/main.sh builds hytorc alone) still installs complete.
add_custom_target(hytorc_installed)
install(CODE "
  execute_process(COMMAND \"${CMAKE_COMMAND}\" --build \"${CMAKE_BINARY_DIR}\" --target hytorc_installed
                  RESULT_VARIABLE built)
  if(NOT built EQUAL 0)
    message(FATAL_ERROR \"cannot build what is installed (target hytorc_installed)\")
  endif()")

# hytorc_install_tool(TARGET): a program a user runs, on the PATH through a link.
function(hytorc_install_tool target)
  add_dependencies(hytorc_installed ${target})
  install(TARGETS ${target} RUNTIME DESTINATION ${HYTORC_INSTALL_ROOT}/bin)
  set(name $<TARGET_FILE_NAME:${target}>)
  install(CODE "
    set(prefix \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
    file(MAKE_DIRECTORY \"\${prefix}/bin\")
    file(CREATE_LINK \"../${HYTORC_INSTALL_ROOT}/bin/${name}\" \"\${prefix}/bin/${name}\" SYMBOLIC)")
endfunction()

# hytorc_install_plugin(TARGET): a plug-in library, where the host loads it from.
function(hytorc_install_plugin target)
  add_dependencies(hytorc_installed ${target})
  install(TARGETS ${target} LIBRARY DESTINATION ${HYTORC_INSTALL_ROOT}/plugins)
endfunction()

# hytorc_install_library(TARGET ...): shared libraries the programs and plug-ins link to.
function(hytorc_install_library)
  add_dependencies(hytorc_installed ${ARGN})
  install(TARGETS ${ARGN} LIBRARY DESTINATION ${HYTORC_INSTALL_ROOT}/lib)
endfunction()

# hytorc_install_files(TARGET FILES ... DESTINATION DIR): files that TARGET makes or
# that come with it, under DIR of the prefix itself (share/man/man1, ...).
function(hytorc_install_files target)
  cmake_parse_arguments(I "" "DESTINATION" "FILES" ${ARGN})
  add_dependencies(hytorc_installed ${target})
  install(FILES ${I_FILES} DESTINATION ${I_DESTINATION})
endfunction()
