// SPDX-License-Identifier: BSD-3-Clause
// zml-info: what the library detected on this machine and the settings it
// would run with, one "key: value" line each so scripts can grep them; with
// --tables, the row every dispatch table runs instead.
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "service/config/settings.h"
#include "service/cpu/code_path.h"
#include "service/cpu/features.h"
#include "service/dispatch/code_path_table.h"
#include "service/platform/platform.h"
#include "service/service.h"

namespace {

using namespace zml;

const char* yes_no(bool b) { return b ? "yes" : "no"; }

void print_processor() {
  const int32_t code_path = zml_serv_get_code_path();
  const int32_t type = serv::processor_type();
  const cpu::DetectionState st = cpu::detection_state();
  std::printf("vendor: %s\n", cpu::vendor());
  std::printf("own_processor: %s\n", yes_no(zml_serv_own_processor()));
  std::printf("processor_type: %" PRId32 "\n", type);
  if (type >= 0 && type < cpu::kProcessorTypes) {
    const cpu::ProcessorTypeRow& row = cpu::kProcessorTypeTable[static_cast<size_t>(type)];
    std::printf("processor_type_isa: %s\n", row.instruction_set);
    std::printf("core_library: %s\n", row.core_library ? row.core_library : "none");
    std::printf("vml_library: %s\n", row.vml_library ? row.vml_library : "none");
  }
  std::printf("code_path: %" PRId32 "\n", code_path);
  std::printf("detected_code_path: %" PRId32 "\n", st.code_path);
  std::printf("forced_type: %s\n", st.forced_type_present == 1 ? "yes" : "no");
  if (st.forced_type_present == 1) std::printf("forced_type_value: %" PRId32 "\n", st.forced_type);
}

void print_features() {
  std::printf("feature_word: 0x%08" PRIx32 "\n", serv::feature_word());
  std::printf("feature_word2: 0x%08" PRIx32 "\n", serv::feature_word2());
  const cpu::FeatureSet f = cpu::features();
  for (const cpu::LevelRow& row : cpu::kLevels) {
    std::printf("group %s: %s\n", row.name, yes_no(f.contains(cpu::group(row.level))));
  }
  std::printf("group AVX-512 many-core: %s\n", yes_no(f.contains(cpu::kManyCore)));
  std::printf("vnni: %s\n", yes_no(cpu::vnni_present() != 0));
  static const char* const kFlagNames[serv::kIsaCount] = {
      "SSE4.2", "AVX", "AVX2", "AVX-512", "AVX-512+VNNI", "reserved5", "reserved6"};
  for (int i = 0; i < serv::kIsaCount; ++i) {
    std::printf("isa_allowed %s: %d\n", kFlagNames[i],
                serv::isa_allowed(static_cast<serv::IsaFlag>(i)) ? 1 : 0);
  }
}

void print_settings() {
  const int32_t branch = zml_serv_cpu_detect(1);
  std::printf("cbwr_branch: %" PRId32 " (%s)\n", branch, cpu::branch_name(branch));
  const int32_t cap = cpu::instruction_cap();
  std::printf("instruction_cap: %" PRId32 " (%s)\n", cap, cpu::instruction_cap_name(cap));
  // Domain 0 first: it reads the threading variables.
  static const char* const kDomains[] = {"all", "blas", "fft", "vml", "dirsol"};
  for (int32_t d = 0; d < 5; ++d) {
    std::printf("max_threads %s: %" PRId32 "\n", kDomains[d], zml_serv_domain_get_max_threads(d));
  }
  std::printf("dynamic: %" PRId32 "\n", serv::g_settings.dynamic.load());
  const platform::Topology t = platform::topology();
  std::printf("logical_processors: %" PRId32 "\n", t.logical);
  std::printf("cores: %" PRId32 "\n", t.cores);
  std::printf("packages: %" PRId32 "\n", t.packages);
}

// Per table: the row this process runs, then the code paths of each level
// with the row they would run on this processor (and, in brackets, the
// level's own row where it cannot run here).
void print_tables() {
  std::printf("code_path: %" PRId32 "\n", zml_serv_get_code_path());
  for (const dispatch::TableBase* t : dispatch::all_tables()) {
    std::printf("table %s: %s\ntable %s paths:", t->name(), t->running().name, t->name());
    const char* separator = " ";
    for (int32_t l = dispatch::level_of_path(0); l < dispatch::kLevelCount; ++l) {
      const int32_t first = dispatch::kLevels[l].first_path;
      const int32_t last = l + 1 < dispatch::kLevelCount ? dispatch::kLevels[l + 1].first_path - 1
                                                         : dispatch::kCodePaths - 1;
      std::printf("%s%" PRId32, separator, first);
      if (last > first) std::printf("-%" PRId32, last);
      const char* here = t->picked(first).name;
      const char* own = t->slot(first).name;
      std::printf(" %s", here);
      if (std::strcmp(here, own) != 0) std::printf(" [%s]", own);
      separator = ", ";
    }
    std::printf("\n");
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--tables") == 0) {
    print_tables();
    return 0;
  }
  if (argc > 1) {
    std::fprintf(stderr, "usage: zml-info [--tables]\n");
    return 2;
  }
  print_processor();
  print_features();
  print_settings();
  return 0;
}
