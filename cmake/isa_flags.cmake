# The kernel folders and their target flags, one line each; the build loop and
# the CI check of baseline objects read this list. Each folder gets exactly the
# features its code path's detection checks, never more, so a processor that
# passes detection cannot fault on an instruction the folder was allowed to use.
set(ZML_ISAS "")
macro(zml_kernel_folder folder)
  list(APPEND ZML_ISAS ${folder})
  set(ZML_ISA_FLAGS_${folder} ${ARGN})
endmacro()
zml_kernel_folder(ref)
zml_kernel_folder(sse2 -msse2)
zml_kernel_folder(sse42 -msse4.2 -mpopcnt)
zml_kernel_folder(avx -mavx)
zml_kernel_folder(avx2 -mavx2 -mfma)
zml_kernel_folder(avx512 -mavx512f -mavx512dq -mavx512bw -mavx512vl -mavx2 -mfma)

# The dispatch tables' level list must name the same folders, in the same order.
set(zml_dispatch_file ${CMAKE_CURRENT_LIST_DIR}/../service/dispatch/code_path_table.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${zml_dispatch_file})
file(READ ${zml_dispatch_file} zml_dispatch_header)
string(REGEX MATCHALL "\n  X\\([a-z0-9]+," zml_levels "${zml_dispatch_header}")
list(TRANSFORM zml_levels REPLACE "^\n  X\\(([a-z0-9]+),$" "\\1")
if(NOT zml_levels STREQUAL ZML_ISAS)
  message(FATAL_ERROR "kernel folders differ: cmake/isa_flags.cmake has '${ZML_ISAS}', "
                      "service/dispatch/code_path_table.h has '${zml_levels}'")
endif()
