# 32-bit x86 Linux build, run under the user-mode emulator: the kernels, the
# 32-bit pointers and size arithmetic and the 4-byte stack alignment at entry
# are those of the 32-bit Windows DLL, which cannot run here.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
set(CMAKE_C_FLAGS_INIT -m32)
set(CMAKE_CXX_FLAGS_INIT -m32)
set(CMAKE_EXE_LINKER_FLAGS_INIT -m32)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -m32)
set(CMAKE_MODULE_LINKER_FLAGS_INIT -m32)
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
# -cpu max offers every instruction set up to AVX2 and FMA (not AVX-512).
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-i386;-cpu;max)
# The packaged GoogleTest is 64-bit: the tests build it from its source.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
