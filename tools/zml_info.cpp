// SPDX-License-Identifier: BSD-3-Clause
// zml-info: what the library detected on this machine (filled in as the service layer grows).
#include <cstdio>

int main() {
  std::printf("custom_zml\n");
  return 0;
}
