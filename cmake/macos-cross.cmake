# macos-cross.cmake - builds for macOS on another system, with clang, lld and the tools of LLVM, from
# an SDK that the person who builds has: it is Apple's and is not part of this repository.
#
#     cmake -B build/macos -G Ninja --toolchain cmake/macos-cross.cmake \
#         -DKESTRUN_MACOS_SDK=/path/to/MacOSX.sdk
#
# One build makes both architectures. Debian: apt-get install clang lld llvm.

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(KESTRUN_MACOS_SDK "" CACHE PATH "The folder of a macOS SDK: it holds usr/include and System/Library/Frameworks")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KESTRUN_MACOS_SDK)
if(NOT KESTRUN_MACOS_SDK)
    message(FATAL_ERROR "macos-cross: say where the macOS SDK is: -DKESTRUN_MACOS_SDK=/path/to/MacOSX.sdk")
endif()
foreach(part
        usr/include/stdio.h
        usr/lib/libSystem.tbd
        System/Library/Frameworks/CoreFoundation.framework/Headers/CoreFoundation.h
        System/Library/Frameworks/DiskArbitration.framework/Headers/DiskArbitration.h
        System/Library/Frameworks/IOKit.framework/Headers/IOKitLib.h)
    if(NOT EXISTS "${KESTRUN_MACOS_SDK}/${part}")
        message(FATAL_ERROR "macos-cross: this is no macOS SDK, it has no ${part}: ${KESTRUN_MACOS_SDK}")
    endif()
endforeach()

# A tool of LLVM, with or without the version that Debian puts behind its name.
function(kestrun_find_tool variable)
    find_program(${variable} NAMES ${ARGN})
    if(NOT ${variable})
        list(JOIN ARGN ", " names)
        message(FATAL_ERROR "macos-cross: none of these is on PATH: ${names} (Debian: apt-get install clang lld llvm)")
    endif()
endfunction()
kestrun_find_tool(KESTRUN_CLANG clang clang-19 clang-18 clang-17 clang-16 clang-15 clang-14)
kestrun_find_tool(KESTRUN_CLANGXX clang++ clang++-19 clang++-18 clang++-17 clang++-16 clang++-15 clang++-14)
kestrun_find_tool(KESTRUN_LD64 ld64.lld ld64.lld-19 ld64.lld-18 ld64.lld-17 ld64.lld-16 ld64.lld-15 ld64.lld-14)
kestrun_find_tool(KESTRUN_LIPO llvm-lipo llvm-lipo-19 llvm-lipo-18 llvm-lipo-17 llvm-lipo-16 llvm-lipo-15 llvm-lipo-14)
kestrun_find_tool(KESTRUN_LIBTOOL llvm-libtool-darwin llvm-libtool-darwin-19 llvm-libtool-darwin-18
    llvm-libtool-darwin-17 llvm-libtool-darwin-16 llvm-libtool-darwin-15 llvm-libtool-darwin-14)

set(CMAKE_C_COMPILER "${KESTRUN_CLANG}")
set(CMAKE_CXX_COMPILER "${KESTRUN_CLANGXX}")
set(CMAKE_C_COMPILER_TARGET x86_64-apple-macos10.13)
set(CMAKE_CXX_COMPILER_TARGET x86_64-apple-macos10.13)
set(CMAKE_OSX_SYSROOT "${KESTRUN_MACOS_SDK}")
set(CMAKE_OSX_DEPLOYMENT_TARGET 10.13 CACHE STRING "The oldest macOS that the daemon starts on")
set(CMAKE_OSX_ARCHITECTURES "x86_64;arm64" CACHE STRING "The architectures of every program")

# clang calls the linker and the joining of two architectures by the names that they have on a Mac,
# and looks for them in this folder first.
set(tools "${CMAKE_BINARY_DIR}/macos-cross-tools")
file(MAKE_DIRECTORY "${tools}")
file(CREATE_LINK "${KESTRUN_LD64}" "${tools}/ld64.lld" SYMBOLIC)
file(CREATE_LINK "${KESTRUN_LIPO}" "${tools}/lipo" SYMBOLIC)
set(CMAKE_C_FLAGS_INIT "-B${tools}")
set(CMAKE_CXX_FLAGS_INIT "-B${tools} -stdlib=libc++")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld")

# Archives of objects for two architectures are this tool's work: ar cannot.
set(CMAKE_AR "${KESTRUN_LIBTOOL}" CACHE FILEPATH "")
set(CMAKE_RANLIB "${CMAKE_COMMAND}" CACHE FILEPATH "")
foreach(language C CXX)
    set(CMAKE_${language}_CREATE_STATIC_LIBRARY "<CMAKE_AR> -static -o <TARGET> <OBJECTS>")
    set(CMAKE_${language}_ARCHIVE_CREATE "<CMAKE_AR> -static -o <TARGET> <OBJECTS>")
    set(CMAKE_${language}_ARCHIVE_FINISH "")
endforeach()

set(CMAKE_FIND_ROOT_PATH "${KESTRUN_MACOS_SDK}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
