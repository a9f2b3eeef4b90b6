// SPDX-License-Identifier: BSD-3-Clause
// The public constants hold the values callers pass and test.
#include <gtest/gtest.h>

#include "custom_zml.h"

TEST(PublicHeaders, EnumerationsAndCodesHaveTheirFixedValues) {
  EXPECT_EQ(CblasRowMajor, 101);
  EXPECT_EQ(CblasColMajor, 102);
  EXPECT_EQ(CblasConjTrans, 113);
  EXPECT_EQ(CblasLower, 122);
  EXPECT_EQ(CblasUnit, 132);
  EXPECT_EQ(CblasRight, 142);
  EXPECT_EQ(LAPACK_ROW_MAJOR, 101);
  EXPECT_EQ(LAPACK_TRANSPOSE_MEMORY_ERROR, -1011);
  EXPECT_EQ(DFTI_DESTROY_INPUT, 28);
  EXPECT_EQ(DFTI_NUMBER_OF_USER_THREADS, 26);
  EXPECT_EQ(DFTI_CCE_FORMAT, 57);
  EXPECT_EQ(DFTI_1D_LENGTH_EXCEEDS_INT32, 9);
  EXPECT_EQ(VML_ERRMODE_DEFAULT | VML_HA, 0x1A02);
  EXPECT_EQ(VSL_BRNG_MCG31, 0x100000);
  EXPECT_EQ(VSL_BRNG_PHILOX4X32X10, 0x1000000);
  EXPECT_EQ(VSL_BRNG_IABSTRACT, 0xA00000);
  EXPECT_EQ(VSL_RNG_METHOD_UNIFORM_STD_ACCURATE, 0x40000000);
  EXPECT_EQ(TR_OUT_OF_MEMORY, 1503);
  EXPECT_EQ(ZML_SPARSE_OPERATION_CONJUGATE_TRANSPOSE, 12);
  EXPECT_EQ(ZML_DOMAIN_DIRSOL, 4);
}

TEST(PublicHeaders, ComplexTypesAreTwoDoubles) {
  EXPECT_EQ(sizeof(lapack_complex_double), 2 * sizeof(double));
  EXPECT_EQ(sizeof(zml_complex16), 2 * sizeof(double));
}
