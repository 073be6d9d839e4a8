# Installed layout: everything under lib/hytorc/ of the prefix, laid out like the build
# tree (bin/, plugins/, lib/), so that a program finds its plug-ins (bin/../plugins) and
# its companions (bin/) relative to its own location; bin/ of the prefix links to the programs.
set(HYTORC_INSTALL_ROOT lib/hytorc)
set(CMAKE_INSTALL_RPATH "$ORIGIN/../lib")

# hytorc_install_tool(TARGET): a program a user runs, on the PATH through a link.
function(hytorc_install_tool target)
  install(TARGETS ${target} RUNTIME DESTINATION ${HYTORC_INSTALL_ROOT}/bin)
  set(name $<TARGET_FILE_NAME:${target}>)
  install(CODE "
    set(prefix \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
    file(MAKE_DIRECTORY \"\${prefix}/bin\")
    file(CREATE_LINK \"../${HYTORC_INSTALL_ROOT}/bin/${name}\" \"\${prefix}/bin/${name}\" SYMBOLIC)")
endfunction()

# hytorc_install_plugin(TARGET): a plug-in library, where the host loads it from.
function(hytorc_install_plugin target)
  install(TARGETS ${target} LIBRARY DESTINATION ${HYTORC_INSTALL_ROOT}/plugins)
endfunction()

# hytorc_install_library(TARGET ...): shared libraries the programs and plug-ins link to.
function(hytorc_install_library)
  install(TARGETS ${ARGN} LIBRARY DESTINATION ${HYTORC_INSTALL_ROOT}/lib)
endfunction()
