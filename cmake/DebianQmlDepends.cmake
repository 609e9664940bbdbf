# Read by cpack when it makes the package. dpkg-shlibdeps sees only the libraries the executable
# links; the QML modules that the views import are loaded at run time, each from a Debian package
# of its own. They are worked out here from the views themselves, so a new import cannot be missed.
if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()

execute_process(
  COMMAND ${CPACK_LAUNCHER_QMLIMPORTSCANNER} -rootPath ${CPACK_LAUNCHER_QML_SOURCES}
          -importPath ${CPACK_LAUNCHER_QML_IMPORT_PATH}
  OUTPUT_VARIABLE imports COMMAND_ERROR_IS_FATAL ANY)
set(qmldirs)
string(JSON count LENGTH "${imports}")
math(EXPR last "${count} - 1")
foreach(index RANGE ${last})
  # The launcher's own module has no path: it is compiled in.
  string(JSON path ERROR_VARIABLE compiledIn GET "${imports}" ${index} path)
  if(NOT compiledIn)
    list(APPEND qmldirs ${path}/qmldir)
  endif()
endforeach()

execute_process(COMMAND dpkg-query --search ${qmldirs}
  OUTPUT_VARIABLE owners COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "(:[a-z0-9]+)?: [^\n]*" "" owners "${owners}")
string(REGEX MATCHALL "[^\n]+" owners "${owners}")
list(REMOVE_DUPLICATES owners)
list(SORT owners)
list(JOIN owners ", " CPACK_DEBIAN_PACKAGE_DEPENDS)
