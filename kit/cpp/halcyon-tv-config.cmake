include(CMakeFindDependencyMacro)
find_dependency(PkgConfig)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp)
include(${CMAKE_CURRENT_LIST_DIR}/halcyon-tv-targets.cmake)
