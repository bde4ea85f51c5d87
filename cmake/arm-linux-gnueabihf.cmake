# The unit's kind of machine, 32-bit ARM, with Debian's cross compiler; programs run under emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
# Statically linked, so that neither the emulator nor the programs started by programs need the other
# machine's libraries.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
# Files have 64-bit sizes and inode numbers on the host that the programs are emulated on. The compiler's
# remarks about its ABI before version 7 do not matter here.
set(CMAKE_CXX_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -Wno-psabi")
set(CMAKE_C_FLAGS_INIT "-D_FILE_OFFSET_BITS=64")
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-arm)
set(KORVANDIS_EMULATOR /usr/bin/qemu-arm CACHE FILEPATH "Runs the programs of this build")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# Not everything that a static PostgreSQL client needs is in Debian, and a unit keeps no record of a line.
set(KORVANDIS_RECORDS OFF CACHE BOOL "Build the record store of the station (SOCI)")
