# Debian's packages of the Android platform libraries. They install below a directory of their own,
# so headers and libraries are looked up there and nowhere else.
find_path(ANDROID_INCLUDE_DIR utils/RefBase.h PATHS /usr/include/android NO_DEFAULT_PATH REQUIRED)
foreach(name IN ITEMS log utils base cutils)
    find_library(ANDROID_${name}_LIBRARY ${name}
            PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH REQUIRED)
endforeach()
get_filename_component(ANDROID_LIBRARY_DIR ${ANDROID_log_LIBRARY} DIRECTORY)
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp)

# What the library sees of the platform. The host's headers come first: they supply or complete what
# Debian's lack. libcorvane_host comes first at run time too, so that its clock, properties and
# trace bodies are the ones found.
add_library(android_platform INTERFACE)
target_include_directories(android_platform SYSTEM INTERFACE
        ${PROJECT_SOURCE_DIR}/platform/host/include ${ANDROID_INCLUDE_DIR})
target_link_libraries(android_platform INTERFACE
        corvane_host ${ANDROID_cutils_LIBRARY} ${ANDROID_base_LIBRARY} ${ANDROID_utils_LIBRARY}
        ${ANDROID_log_LIBRARY} PkgConfig::JSONCPP Threads::Threads ${CMAKE_DL_LIBS})
