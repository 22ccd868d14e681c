// The mode table and the current mode. The long names are what the modes are called in the manuals;
// they stand here because the table is where a reader looks for the meaning of a short name.

#include "common/cmode.h"

#include <array>
#include <string_view>

#include "common/alert.h"
#include "common/kvdebug.h"

namespace kv {
namespace {

struct cmode_row {
  const char* short_name;
  const char* long_name;
  unsigned value;
};

constexpr std::array<cmode_row, 9> cmode_table = {{
    {"lvx", "Lorant C", CMODE_LVX},
    {"r20", "Nestor R20 Traditional", CMODE_R20},
    {"r20e", "Nestor R20 Extended", CMODE_R20E},
    {"tsasm", "Nestor TSASM Toolsuite", CMODE_TSASM},
    {"tslink", "Nestor Toolsuite Linker", CMODE_TSLINK},
    {"tslib", "Nestor Toolsuite Librarian", CMODE_TSLIB},
    {"ssc", "Shared Source Convention", CMODE_SSC},
    {"ovk", "Ovik Cross Compiler", CMODE_OVK},
    {nullptr, nullptr, CMODE_NONE},
}};

// One value of the table; CMODE_NONE after an unknown name.
constinit unsigned cur_cmode = CMODE_LVX;

const cmode_row& find_mode(const char* name) {
  const cmode_row* row = cmode_table.data();
  while (row->short_name != nullptr &&
         (name == nullptr || std::string_view(name) != row->short_name))
    ++row;
  return *row;
}

}  // namespace

unsigned cmode_set(const char* opt) {
  if (db_asserts_on() && opt == nullptr) db_assert("opt != NULL", __FILE__, __LINE__);
  const cmode_row& row = find_mode(opt);
  cur_cmode = row.value;
  if (row.short_name == nullptr) alert_printf("Unknown cmode (%s)", opt);
  return cur_cmode;
}

unsigned cmode_get() {
  return cur_cmode;
}

unsigned cmode_is(unsigned modes) {
  return cur_cmode & modes;
}

}  // namespace kv
