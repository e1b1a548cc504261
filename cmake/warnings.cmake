# Warnings for our own code; clang adds the thread-safety analysis, which is always an error.
add_library(corvane_warnings INTERFACE)
target_compile_options(corvane_warnings INTERFACE -Wall -Wextra)
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
    target_compile_options(corvane_warnings INTERFACE -Wthread-safety -Werror=thread-safety)
endif()
if(CORVANE_WERROR)
    target_compile_options(corvane_warnings INTERFACE -Werror)
endif()
