# -fsanitize applies to everything that we compile, so that one report covers library, host and test.
set(CORVANE_NO_UNDEFINED LINKER:-z,defs)
if(CORVANE_SANITIZE)
    add_compile_options(-fsanitize=${CORVANE_SANITIZE} -fno-omit-frame-pointer -g)
    add_link_options(-fsanitize=${CORVANE_SANITIZE})
    if(CORVANE_SANITIZE MATCHES undefined)
        add_compile_options(-fno-sanitize-recover=undefined)
    endif()
    # Under clang the sanitizer runtime lives in the executable, where -z defs cannot see it.
    set(CORVANE_NO_UNDEFINED "")
endif()
