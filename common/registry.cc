// The device-family tree: one table row per kind of directory.

#include "common/registry.h"

#include <array>
#include <string>

#include "common/kvinstdir.h"
#include "common/osdep.h"
#include "common/stringcache.h"
#include "host/host.h"

namespace kv {
namespace {

struct tree_row {
  const char* name;
  bool library_level;
};

// Indexed by kind; a null name marks the base directory and the kind that does not exist.
constexpr std::array<tree_row, 11> tree = {{{nullptr, false},
                                            {"bin", false},
                                            {"lib", true},
                                            {"help", false},
                                            {"include", false},
                                            {"dat", false},
                                            {"sources", true},
                                            {"resources", false},
                                            {"docs", false},
                                            {nullptr, false},
                                            {"include", true}}};

// An interned string, or null while no library has been named.
constinit const char* c_stdlib = nullptr;

}  // namespace

const char* reg_instdir(unsigned kind) {
  if (kind == REG_C_INCLUDE && c_stdlib == nullptr) kind = REG_INCLUDE;
  const char* base = kvinstdir(KVINSTDIR_VEX);
  if (!file_exists(base)) {
    if (!set_kvinstall_paths()) return nullptr;
    base = kvinstdir(KVINSTDIR_VERSION);
  }
  return reg_create_path(base, kind);
}

const char* reg_create_path(const char* base, unsigned kind) {
  if (base == nullptr || kind == REG_BASE) return base;
  if (kind >= tree.size() || tree[kind].name == nullptr) return nullptr;
  std::string path = path_join(base, tree[kind].name).value_or(tree[kind].name);
  if (tree[kind].library_level && c_stdlib != nullptr) {
    path = path_join(path.c_str(), c_stdlib).value_or(path);
  }
  return str_intern(host::spelling_to_open(path.c_str()).c_str());
}

void reg_set_c_stdlib(const char* name) {
  c_stdlib = str_intern(name);
}

const char* reg_get_c_stdlib() {
  return c_stdlib;
}

}  // namespace kv
