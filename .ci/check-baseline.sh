#!/usr/bin/env bash
# Fails if a baseline object of a build (a library object outside the kernel
# folders whose flags allow AVX) holds a VEX- or EVEX-encoded instruction.
# Usage: check-baseline.sh OBJDUMP BUILD_DIR
#
# The instruction bytes decide, not register names: an instruction is VEX,
# EVEX or XOP encoded when its first byte after the legacy and REX prefixes is
# c5, c4, 62 or 8f, unless the disassembler decoded those bytes as the legacy
# instruction they also encode (lds, les, bound in 32-bit code; pop). That
# catches scalar AVX on xmm registers, AVX-512 mask instructions and BMI too.
set -euo pipefail
objdump=$1
dir=$2
cd "$(dirname "$0")/.."
wide=$(sed -n 's/^zml_kernel_folder(\([a-z0-9]*\) .*-mavx.*/\1/p' cmake/isa_flags.cmake | paste -sd'|')

# Prints "object: instruction" for each VEX/EVEX/XOP-encoded instruction.
vex_instructions() {
  "$objdump" -d --insn-width=15 "$@" | awk -F'\t' '
    /file format/ { obj = $0; sub(/:[ \t]+file format.*/, "", obj) }
    NF >= 3 && $1 ~ /^ *[0-9a-f]+:$/ {
      n = split($2, b, " "); i = 1
      while (i <= n && b[i] ~ /^(26|2e|36|3e|64|65|66|67|f0|f2|f3|4[0-9a-f])$/) i++
      if (i > n || b[i] !~ /^(c4|c5|62|8f)$/) next
      split($3, m, " ")
      if (m[1] ~ /^(lds|les|bound|pop)/) next
      print obj ": " $3
    }'
}

mapfile -t objects < <(find "$dir/CMakeFiles" -name '*.o' -o -name '*.obj' | sort)
baseline=()
kernels=()
wide_re="/kernels/($wide)/"
for obj in "${objects[@]}"; do
  if [[ $obj =~ $wide_re ]]; then kernels+=("$obj"); else baseline+=("$obj"); fi
done
if [ ${#baseline[@]} = 0 ] || [ ${#kernels[@]} = 0 ]; then
  echo "no objects found under $dir/CMakeFiles"; exit 1
fi
# The check checks itself: the AVX kernel objects must be caught.
if [ -z "$(vex_instructions "${kernels[@]}" | head -1)" ]; then
  echo "no VEX instruction found in the AVX kernel objects: the check is broken"; exit 1
fi
bad=$(vex_instructions "${baseline[@]}")
if [ -n "$bad" ]; then
  echo "VEX/EVEX-encoded instructions in baseline objects of $dir:"
  echo "$bad" | head -40
  exit 1
fi
echo "$dir: ${#baseline[@]} baseline objects hold no VEX/EVEX instruction" \
     "(${#kernels[@]} AVX kernel objects skipped)"
