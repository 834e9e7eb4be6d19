# How every target of the project is built: the language, the warnings (errors in the presets) and the
# sanitizers.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# The daemon's own code is optimised and checked for everything in a debug build. What stands around it
# (this property; the variable sets it for all targets that follow) builds in less than half the time
# unoptimised and without UBSan's look at each pointer: a null pointer faults all the same, and of what
# else a pointer may be AddressSanitizer knows.
define_property(TARGET PROPERTY KESTRUN_AROUND INITIALIZE_FROM_VARIABLE KESTRUN_AROUND)
set(around $<BOOL:$<TARGET_PROPERTY:KESTRUN_AROUND>>)

add_library(kestrun_warnings INTERFACE)
target_compile_options(kestrun_warnings INTERFACE
    -Wall -Wextra -Wshadow -Wconversion -Wpedantic -Wundef -Wvla
    $<$<BOOL:${KESTRUN_WARNINGS_ARE_ERRORS}>:-Werror>
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wextra-semi>
    $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wlogical-op>
    # From -O3 on g++ 12 takes an insertion into a std::string for one that overlaps (its bug 105651).
    $<$<AND:$<COMPILE_LANG_AND_ID:CXX,GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>
    $<$<CXX_COMPILER_ID:Clang,AppleClang>:-Wshadow-all -Wcomma -Wunreachable-code
        -Wimplicit-fallthrough -Wnewline-eof -Wmissing-prototypes>
    $<$<AND:${around},$<CONFIG:Debug>>:-O0>)
if(KESTRUN_SANITIZE)
    target_compile_options(kestrun_warnings INTERFACE
        -fsanitize=${KESTRUN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(kestrun_warnings INTERFACE -fsanitize=${KESTRUN_SANITIZE})
    if(KESTRUN_SANITIZE MATCHES undefined)
        target_compile_options(kestrun_warnings INTERFACE
            $<${around}:-fno-sanitize=null,alignment,object-size,vptr>)
    endif()
endif()

# What the daemon, its modules and its library share: the repository's root is the include path.
# Tests link the same modules, but are themselves built with exceptions (the property says so).
add_library(kestrun_product INTERFACE)
target_link_libraries(kestrun_product INTERFACE kestrun_warnings)
target_include_directories(kestrun_product INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(kestrun_product INTERFACE
    "$<$<AND:$<COMPILE_LANGUAGE:CXX>,$<NOT:$<BOOL:$<TARGET_PROPERTY:KESTRUN_EXCEPTIONS>>>>:-fno-exceptions;-fno-rtti>")
