# 32-bit x86 on a 64-bit Debian, with g++-12-multilib. g++-multilib, which conflicts with cross compilers, would bring
# the folder of the C library's headers for both widths; it is named here.
set(CMAKE_C_COMPILER gcc-12)
set(CMAKE_CXX_COMPILER g++-12)
set(CMAKE_C_FLAGS_INIT "-m32 -isystem /usr/include/x86_64-linux-gnu")
set(CMAKE_CXX_FLAGS_INIT "-m32 -isystem /usr/include/x86_64-linux-gnu")
# A kernel that runs no 32-bit programs itself leaves them to user-mode emulation.
execute_process(COMMAND /lib/ld-linux.so.2 --version RESULT_VARIABLE not_run OUTPUT_QUIET ERROR_QUIET)
if(not_run)
  set(CMAKE_CROSSCOMPILING_EMULATOR qemu-i386)
endif()
