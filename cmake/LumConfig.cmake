# find_package(Lum): the host libraries Lum::Lum and Lum::LumCore, and a command that builds a module with them.
include(CMakeFindDependencyMacro)
find_dependency(Threads)
include(${CMAKE_CURRENT_LIST_DIR}/LumTargets.cmake)

# lum_add_module(name sources...): the module name.so, which shows nothing but what its sources mark.
function(lum_add_module name)
    add_library(${name} MODULE ${ARGN})
    target_link_libraries(${name} PRIVATE Lum::LumCore)
    target_compile_features(${name} PRIVATE cxx_std_20)
    set_target_properties(${name} PROPERTIES PREFIX "" CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
endfunction()
