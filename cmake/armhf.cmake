# SPDX-License-Identifier: Apache-2.0
# 32-bit ARM with hardware floating point: Debian's cross compiler, that architecture's libraries
# from a folder of their own, and qemu for what the build and the tests run.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH project)
set(ZOZALE_ARMHF_SYSROOT ${project}/build/armhf-sysroot
  CACHE PATH "Where script/armhf-sysroot unpacks libraries")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZOZALE_ARMHF_SYSROOT)
execute_process(COMMAND ${project}/script/armhf-sysroot ${ZOZALE_ARMHF_SYSROOT}
  COMMAND_ERROR_IS_FATAL ANY)

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# Since version 7 the compiler tells of a change of the calling convention in version 7.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
# The compiler brings the C library of its own; the folder holds everything else.
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH ${ZOZALE_ARMHF_SYSROOT} /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# What runs finds these libraries by itself: no path of this machine gets into a program.
set(libraries ${ZOZALE_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf)
list(APPEND CMAKE_PLATFORM_IMPLICIT_LINK_DIRECTORIES ${libraries})
# The linker, too, has to be told where those are that a library needs.
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,-rpath-link,${libraries})
set(CMAKE_SHARED_LINKER_FLAGS_INIT ${CMAKE_EXE_LINKER_FLAGS_INIT})
# Headers of packages that differ from one architecture to the next.
set(CMAKE_C_STANDARD_INCLUDE_DIRECTORIES ${ZOZALE_ARMHF_SYSROOT}/usr/include/arm-linux-gnueabihf)
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES ${CMAKE_C_STANDARD_INCLUDE_DIRECTORIES})
# pkg-config must not answer with this machine's libraries.
set(ENV{PKG_CONFIG_DIR} "")
set(ENV{PKG_CONFIG_LIBDIR}
  ${ZOZALE_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${ZOZALE_ARMHF_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${ZOZALE_ARMHF_SYSROOT})

set(CMAKE_CROSSCOMPILING_EMULATOR ${project}/script/armhf-run)
