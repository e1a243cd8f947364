# The project's kinds of targets. Everything that a target needs is set on the target itself.

# Compile settings common to all code of the project.
function(kova_compile_settings target)
    target_include_directories(${target} PUBLIC ${CMAKE_SOURCE_DIR})
    target_compile_options(${target} PRIVATE -Wall -Wextra)
    if(KOVA_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(KOVA_DCHECK)
        target_compile_definitions(${target} PRIVATE KOVA_DCHECK_ENABLED=1)
    endif()
    if(KOVA_SANITIZE)
        target_compile_options(${target} PRIVATE -fsanitize=${KOVA_SANITIZE} -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${KOVA_SANITIZE})
    endif()
endfunction()

# kova_add_static(NAME SOURCES... ): a static library of the project.
function(kova_add_static name)
    add_library(${name} STATIC ${ARGN})
    kova_compile_settings(${name})
endfunction()

# kova_add_layer(NAME SOURCES... ): a layer of camera/, as the static library kova_<name>. Floating
# point is never contracted, so that every SIMD target of a kernel computes the same bits.
function(kova_add_layer name)
    kova_add_static(kova_${name} ${ARGN})
    target_compile_options(kova_${name} PRIVATE -ffp-contract=off)
    target_link_libraries(kova_${name} PUBLIC kova_sdk)
endfunction()

# kova_add_shared(NAME SOURCES... ): one of the three shared libraries behind sdk/.
function(kova_add_shared name)
    add_library(${name} SHARED ${ARGN})
    kova_compile_settings(${name})
    target_compile_definitions(${name} PRIVATE KOVA_SDK_BUILD)
    target_compile_options(${name} PRIVATE -ffp-contract=off)
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
    if(KOVA_SANITIZE)
        # The sanitizers' run time comes with the executable.
        target_link_options(${name} PRIVATE -Wl,-z,undefs)
    endif()
    set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 1)
endfunction()

# Some compilers pass --as-needed to the linker, which drops a shared library that is named before
# the static one that needs it.
function(kova_keep_shared_libraries target)
    target_link_options(${target} PRIVATE LINKER:--no-as-needed)
endfunction()

# Executables choose what stands behind sdk/ and OpenGL: the real libraries ...
function(kova_link_real target)
    kova_keep_shared_libraries(${target})
    target_link_libraries(${target} PRIVATE libkova_stereocamera64 libkova_cudafunctions64
                                            libkova_utils64 GLEW::GLEW OpenGL::GL)
endfunction()

# kova_add_test(NAME folder/file SRCS ... LIBS ... LABELS ... [REAL] [XVFB] [QT] [TIMEOUT s]
#               [SHARDS n] [ENVIRONMENT VAR=value ...])
# One test executable, one CTest entry (n of them, NAME_1 to NAME_n, that share its cases). REAL links the real libraries behind sdk/ and OpenGL,
# XVFB runs it under its own virtual screen, QT gives it a main with a QApplication (offscreen
# unless XVFB is given).
function(kova_add_test)
    cmake_parse_arguments(arg "REAL;XVFB;QT" "NAME;TIMEOUT;SHARDS" "SRCS;LIBS;LABELS;ENVIRONMENT" ${ARGN})
    string(REPLACE "/" "_" target "${arg_NAME}_test")
    add_executable(${target} ${arg_SRCS})
    kova_compile_settings(${target})
    set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    target_link_libraries(${target} PRIVATE ${arg_LIBS})
    if(arg_QT)
        target_link_libraries(${target} PRIVATE kova_qt_test_main)
    else()
        target_link_libraries(${target} PRIVATE kova_test_main)
    endif()
    if(arg_REAL)
        kova_link_real(${target})
    endif()
    set(command ${target})  # by name, so that CMake puts an emulator before it
    if(arg_XVFB)
        set(command ${CMAKE_SOURCE_DIR}/scripts/with-xvfb $<TARGET_FILE:${target}>)
    endif()
    # tests_<label> builds what the tests of a label need, for the sanitizers' partial builds.
    foreach(label IN LISTS arg_LABELS)
        if(NOT TARGET tests_${label})
            add_custom_target(tests_${label})
        endif()
        add_dependencies(tests_${label} ${target})
    endforeach()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 60)
    endif()
    if(CMAKE_CROSSCOMPILING)  # in an emulator
        math(EXPR arg_TIMEOUT "${arg_TIMEOUT} * 20")
    elseif(KOVA_SANITIZE MATCHES "thread")
        math(EXPR arg_TIMEOUT "${arg_TIMEOUT} * 15")
    elseif(KOVA_SANITIZE)
        math(EXPR arg_TIMEOUT "${arg_TIMEOUT} * 4")
    endif()
    set(environment LC_ALL=C.UTF-8 QT_STYLE_OVERRIDE=Fusion QT_SCALE_FACTOR=1 QT_FONT_DPI=96
                    LIBGL_ALWAYS_SOFTWARE=1 ${arg_ENVIRONMENT})
    if(NOT arg_XVFB)
        list(APPEND environment QT_QPA_PLATFORM=offscreen)
    endif()
    if(NOT arg_SHARDS)
        set(arg_SHARDS 1)
    endif()
    foreach(shard RANGE 1 ${arg_SHARDS})
        set(name ${arg_NAME})
        set(shard_environment "")
        if(arg_SHARDS GREATER 1)
            set(name ${arg_NAME}_${shard})
            math(EXPR index "${shard} - 1")
            set(shard_environment GTEST_TOTAL_SHARDS=${arg_SHARDS} GTEST_SHARD_INDEX=${index})
        endif()
        add_test(NAME ${name} COMMAND ${command})
        set_tests_properties(${name} PROPERTIES LABELS "${arg_LABELS}" TIMEOUT ${arg_TIMEOUT}
                             ENVIRONMENT "${environment};${shard_environment}")
    endforeach()
endfunction()
