# Target flags per kernel folder. Each folder gets exactly the features its
# code path's detection checks, never more, so a processor that passes
# detection cannot fault on an instruction the folder was allowed to use.
set(ZML_ISA_FLAGS_ref "")
set(ZML_ISA_FLAGS_sse2 "-msse2")
set(ZML_ISA_FLAGS_sse42 "-msse4.2;-mpopcnt")
set(ZML_ISA_FLAGS_avx "-mavx")
set(ZML_ISA_FLAGS_avx2 "-mavx2;-mfma")
set(ZML_ISA_FLAGS_avx512 "-mavx512f;-mavx512dq;-mavx512bw;-mavx512vl;-mavx2;-mfma")
set(ZML_ISAS ref sse2 sse42 avx avx2 avx512)
