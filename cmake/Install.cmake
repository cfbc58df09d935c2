# What `cmake --install` puts where: the components daemon, tools and development. The target `packaged` builds it all.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
find_package(Python3 REQUIRED COMPONENTS Interpreter)

set(packaging ${PROJECT_SOURCE_DIR}/packaging)
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/man)
set(private_libraries ${CMAKE_INSTALL_LIBDIR}/diagnostics-collector)
cmake_path(GET DIAG_ANDROID_utils PARENT_PATH android_libraries)

add_custom_target(packaged DEPENDS diagnostics_collector_service ossdk_pellux diagctl)

# diag_manual_page(<name> <section> <component>): the page that docs/man/<name>.<section>.in and diagctl make.
function(diag_manual_page name section component)
  set(source ${PROJECT_SOURCE_DIR}/docs/man)
  set(page ${PROJECT_BINARY_DIR}/man/${name}.${section})
  add_custom_command(
    OUTPUT ${page}
    COMMAND Python3::Interpreter ${source}/make_page.py $<TARGET_FILE:diagctl> ${source}/${name}.${section}.in
            ${PROJECT_VERSION} > ${page}
    DEPENDS ${source}/make_page.py ${source}/${name}.${section}.in diagctl ossdk_pellux
    VERBATIM)
  add_custom_target(${name}_page DEPENDS ${page})
  add_dependencies(packaged ${name}_page)
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endfunction()

# diag_archive(<name> KEEP <pattern>... FROM <target>...)
# Makes lib<name>.a: the targets' objects as one, in which only names that match a pattern are visible to a linker.
# So a program can link it beside whatever else contains our internals, the other archive for instance.
function(diag_archive name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "KEEP;FROM")
  list(TRANSFORM arg_FROM REPLACE "(.+)" "$<TARGET_FILE:\\1>" OUTPUT_VARIABLE inputs)
  # A pattern that begins with an exclamation mark takes names from those after it.
  list(TRANSFORM arg_KEEP PREPEND "--keep-global-symbol=" OUTPUT_VARIABLE kept)
  set(object ${PROJECT_BINARY_DIR}/${name}.o)
  set(archive ${PROJECT_BINARY_DIR}/lib${name}.a)
  add_custom_command(
    OUTPUT ${archive}
    COMMAND ${CMAKE_LINKER} -r --force-group-allocation -o ${object} --whole-archive ${inputs}
    COMMAND ${CMAKE_OBJCOPY} --wildcard ${kept} ${object}
    COMMAND ${CMAKE_COMMAND} -E rm -f ${archive}
    COMMAND ${CMAKE_AR} rcs ${archive} ${object}
    DEPENDS ${arg_FROM}
    VERBATIM)
  add_custom_target(${name}_archive DEPENDS ${archive})
  add_dependencies(packaged ${name}_archive)
  install(FILES ${archive} DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  # Relative, so that the file also holds below another prefix that `cmake --install` is given.
  set(prefix_from_here /prefix)
  cmake_path(RELATIVE_PATH prefix_from_here BASE_DIRECTORY /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  configure_file(${packaging}/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endfunction()

# --- daemon ------------------------------------------------------------------------------------------------

# The daemon and diagctl open the module by its bare name and find it in the private folder.
set_target_properties(diagnostics_collector_service diagctl PROPERTIES
  INSTALL_RPATH "${CMAKE_INSTALL_FULL_LIBDIR}/diagnostics-collector;${android_libraries}")
set_target_properties(ossdk_pellux PROPERTIES INSTALL_RPATH "${android_libraries}")
install(TARGETS diagnostics_collector_service DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemon)
install(TARGETS ossdk_pellux DESTINATION ${private_libraries} COMPONENT daemon)
install(PROGRAMS ${packaging}/prepare-host DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/diagnostics-collector COMPONENT daemon)
install(FILES ${packaging}/torv_crashreporter.conf DESTINATION ${CMAKE_INSTALL_SYSCONFDIR} COMPONENT daemon)
diag_manual_page(diagnostics_collector_service 8 daemon)
diag_manual_page(torv_crashreporter.conf 5 daemon)

# --- tools -------------------------------------------------------------------------------------------------

install(TARGETS diagctl DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
diag_manual_page(diagctl 1 tools)
install(FILES ${packaging}/completion/diagctl
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
install(FILES ${packaging}/completion/_diagctl
  DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT tools)
install(FILES ${packaging}/completion/diagctl.fish
  DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tools)

# --- development -------------------------------------------------------------------------------------------

diag_archive(diagnostics-client
  FROM diag_aidl platform_binder platform_parcel platform_runtime base
  KEEP !_ZN7android4base* _ZN7android* _ZNK7android* _ZT[VTC]N7android* _ZTh*_N7android* _ZTv*_N7android*
       _ZN3dev5kerno* _ZNK3dev5kerno* _ZT[VTC]N3dev5kerno* _ZTh*_N3dev5kerno* _ZTv*_N3dev5kerno*)
diag_archive(diagnostics-publisher
  FROM platform_statsd_writer platform_runtime base
  KEEP _ZN9libstatsd16StatsEventWriter* diagnostics_*)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/aidl/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/diagnostics-client
  COMPONENT development FILES_MATCHING PATTERN "I*.h" PATTERN "BinderHeaders.h" PATTERN "BundleKeys.h")
install(FILES
  ${PROJECT_SOURCE_DIR}/platform/statsd/include/statsd/StatsEventWriter.h
  ${PROJECT_SOURCE_DIR}/platform/statsd/include/statsd/diagnostics_publisher.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/diagnostics-publisher/statsd COMPONENT development)
set(cmake_package ${CMAKE_INSTALL_LIBDIR}/cmake/DiagnosticsClient)
configure_package_config_file(${packaging}/DiagnosticsClientConfig.cmake.in
  ${PROJECT_BINARY_DIR}/DiagnosticsClientConfig.cmake
  INSTALL_DESTINATION ${cmake_package}
  PATH_VARS CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/DiagnosticsClientConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/DiagnosticsClientConfig.cmake ${PROJECT_BINARY_DIR}/DiagnosticsClientConfigVersion.cmake
  DESTINATION ${cmake_package} COMPONENT development)
