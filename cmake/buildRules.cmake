# How everything of the project is compiled: one interface target that each target links privately.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "" FORCE)
endif()

add_library(buildRules INTERFACE)
target_include_directories(buildRules INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(buildRules INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    $<$<BOOL:${VEXODL_WARNINGS_AS_ERRORS}>:-Werror>)
if(VEXODL_SANITIZE)
    target_compile_options(buildRules INTERFACE -fsanitize=${VEXODL_SANITIZE} -fno-omit-frame-pointer)
    target_link_options(buildRules INTERFACE -fsanitize=${VEXODL_SANITIZE})
endif()

find_package(PkgConfig REQUIRED)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp)
