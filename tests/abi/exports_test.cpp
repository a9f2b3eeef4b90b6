// SPDX-License-Identifier: BSD-3-Clause
// The shared library exports exactly the rows of the export table marked built.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace {

struct Table {
  std::set<std::string> built, missing;
};

Table read_table() {
  Table t;
  std::ifstream in(ZML_EXPORTS_TABLE);
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream ss(line);
    std::string name, family, state;
    ss >> name >> family >> state;
    (state == "built" ? t.built : t.missing).insert(name);
  }
  return t;
}

// Whether the loaded library resolves `name` by the platform's own lookup.
bool resolves(const std::string& name) {
#ifdef _WIN32
  static HMODULE lib = LoadLibraryA(ZML_SHARED_LIBRARY);
  return lib && GetProcAddress(lib, name.c_str()) != nullptr;
#else
  static void* lib = dlopen(ZML_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  return lib && dlsym(lib, name.c_str()) != nullptr;
#endif
}

#ifndef _WIN32
std::set<std::string> dynamic_symbols() {
  std::set<std::string> names;
  std::string cmd = std::string("nm -D --defined-only ") + ZML_SHARED_LIBRARY;
  FILE* p = popen(cmd.c_str(), "r");
  if (!p) return names;
  char buf[512];
  while (std::fgets(buf, sizeof buf, p)) {
    std::istringstream ss(buf);
    std::string addr, kind, name;
    ss >> addr >> kind >> name;
    if (kind == "T" || kind == "W" || kind == "i") names.insert(name);
  }
  pclose(p);
  return names;
}
#endif

}  // namespace

// Built rows resolve and missing rows do not; on Linux the dynamic symbol
// table must also hold nothing else (the CI script checks the Windows DLL's
// export table the same way).
TEST(Exports, SharedLibraryExportsExactlyTheBuiltRows) {
  Table t = read_table();
  EXPECT_EQ(t.built.size() + t.missing.size(), 112u) << "every interface function has a row";
  for (const auto& name : t.built) EXPECT_TRUE(resolves(name)) << name;
  std::string list;
  for (const auto& name : t.missing) {
    EXPECT_FALSE(resolves(name)) << name;
    list += " " + name;
  }
  std::printf("%zu of 112 exports built; still missing (%zu):%s\n", t.built.size(),
              t.missing.size(), list.c_str());
#ifndef _WIN32
  std::set<std::string> syms = dynamic_symbols();
  ASSERT_FALSE(syms.empty() && !t.built.empty()) << "could not list " << ZML_SHARED_LIBRARY;
  EXPECT_EQ(syms, t.built);
#endif
}
