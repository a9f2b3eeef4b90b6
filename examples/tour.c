/* SPDX-License-Identifier: BSD-3-Clause */
/* A tour of the library through its public interface (grows with each family). */
#include <stdio.h>

#include "custom_zml.h"

int main(void) {
  printf("custom_zml tour\n");
  return 0;
}
