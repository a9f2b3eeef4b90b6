// SPDX-License-Identifier: BSD-3-Clause
// Inside threading control: the per-thread count, the topology record and the
// query behind zml_serv_domain_get_max_threads.
#pragma once

#include <cstdint>

namespace zml::serv {

// The topology of the processors this process may use, read once.
struct TopologyRecord {
  int32_t logical = 1;
  int32_t cores = 1;
  int32_t packages = 1;
  int32_t cores_per_package = 1;
  int32_t logical_differs = 0;  // 1 when logical processors and cores differ
};
const TopologyRecord& topology_record();

// The calling thread's own thread count, which wins over every other setting
// when above 0. No export sets it; drivers and tests do. 0 or below clears it.
void set_thread_local_threads(int32_t n);
int32_t thread_local_threads();

}  // namespace zml::serv
