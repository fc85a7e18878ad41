# Warnings, sanitizers and coverage: the same for every target of the project.

if(CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
    # Routines and lines, which a backtrace needs, in two thirds of the time that variables would take as well.
    set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g1 -DNDEBUG")
endif()

if(LUM_REPRODUCIBLE)
    add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)

if(LUM_SANITIZE)
    add_compile_options(-fsanitize=${LUM_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -O1)
    add_link_options(-fsanitize=${LUM_SANITIZE})
    if(LUM_SANITIZE STREQUAL "thread")
        # The thread sanitizer does not know memory fences. Asio adds them to what its locks order anyway.
        add_compile_definitions(BOOST_ASIO_DISABLE_FENCED_BLOCK)
    endif()
endif()

if(LUM_COVERAGE)
    add_compile_options(--coverage -fprofile-update=atomic -O0)
    add_link_options(--coverage)
endif()

if(LUM_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
    add_link_options(-fsanitize=fuzzer-no-link)
endif()
