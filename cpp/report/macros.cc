#include "cpp/report/macros.h"

#include <algorithm>

#include "common/alert.h"
#include "common/text_table.h"
#include "cpp/report/conditions.h"
#include "cpp/report/files.h"
#include "cpp/report/observe.h"
#include "cpp/symtab.h"

namespace kv::cpp::observe {

namespace {

struct macro_watch {
  decltype(observed_run::macros) macros;
  text_table<int> numbers;  // of macros by their names, plus one; left_out
  std::uint64_t expansions = 0;
};

constexpr auto& w = the<macro_watch>;

constexpr int left_out = -1;

// What the tables have for a name.
int find_or_add(std::string_view name) {
  int& record = w().numbers[name].record;
  if (record == 0) {
    const int number = w().macros.add({});
    record = number < 0 ? left_out : number + 1;
    if (number >= 0) w().macros[number].name = name;
  }
  return record;
}

// The macro that a table has `record` for, or null where it is left out.
observed_macro* macro_of(int record) {
  return record == left_out ? nullptr : &w().macros[record - 1];
}

int record_of(const symbol* sym) {
  if (sym->record == 0) sym->record = find_or_add(alert_str(sym->name));
  return sym->record;
}

// Notes that a macro was of use here, for the header that defines it.
void credit_header(const observed_macro& macro) {
  if (macro.defined && macro.defined_in != current_file()) credit_file(macro.defined_in);
}

void note_change(observed_macro& macro, macro_change_kind kind) {
  if (macro.changes.size() < observed_limits::changes) macro.changes.push_back({kind, here()});
}

void set_definition(observed_macro& macro, const symbol* sym, std::vector<std::string> params) {
  macro.nargs = sym->nargs;
  macro.params = std::move(params);
  macro.body.assign(sym->body != nullptr ? sym->body : u"");
  macro.is_dynamic = sym->body == nullptr;
  macro.defined = true;
  macro.defined_in = current_file();
}

}  // namespace

void begin_macros() {
  for (std::size_t n = 0; n < symtab_chains; ++n) {
    for (const symbol* sym = symtab(n); sym != nullptr; sym = sym->link) {
      observed_macro* const macro = macro_of(record_of(sym));
      if (macro == nullptr) continue;
      set_definition(*macro, sym, {});
      macro->origin = sym->from_command_line ? macro_origin::command_line : macro_origin::startup;
    }
  }
}

void finish_macros(observed_run& run) {
  run.macros = std::move(w().macros);
  run.expansions = w().expansions;
}

int macro_number(const symbol* sym) {
  return std::max(record_of(sym) - 1, -1);
}

const std::string& macro_name(int number) {
  return w().macros[number].name;
}

void count_expansion(const symbol* sym) {
  ++w().expansions;
  observed_macro* const macro = macro_of(record_of(sym));
  if (macro == nullptr) return;
  ++macro->expanded;
  if (reads_condition()) ++macro->tested_if;
  credit_header(*macro);
}

void macro_defined(const symbol* sym, std::vector<std::string> params) {
  observed_macro* const macro = macro_of(record_of(sym));
  if (macro == nullptr) return;
  if (macro->defined && macro->nargs == sym->nargs && macro->params == params &&
      macro->body == sym->body) {
    ++macro->same_again;
    return;
  }
  note_change(*macro, macro->defined ? macro_change_kind::redefined : macro_change_kind::defined);
  if (macro->defined) ++macro->redefined;
  if (macro->origin == macro_origin::none) {
    macro->origin = macro_origin::file;
    macro->at = here();
  }
  set_definition(*macro, sym, std::move(params));
}

void macro_removed(const symbol* sym) {
  observed_macro* const macro = macro_of(record_of(sym));
  if (macro == nullptr) return;
  note_change(*macro, macro_change_kind::undefined);
  ++macro->undefined;
  // What removes a macro of another file must not be dropped lightly.
  if (macro->defined_in != current_file()) credit_file(current_file());
  macro->defined = false;
}

void name_tested(std::string_view name, bool is_defined) {
  observed_macro* const macro = macro_of(find_or_add(name));
  if (macro != nullptr) {
    ++(reads_condition() ? macro->tested_if : macro->tested_ifdef);
    credit_header(*macro);
  }
  add_condition_name({std::string(name), is_defined ? "1" : "0", true});
}

void name_unknown(std::string_view name) {
  observed_macro* const macro = macro_of(find_or_add(name));
  if (macro != nullptr) ++macro->tested_if;
  add_condition_name({std::string(name), "0", false});
}

}  // namespace kv::cpp::observe
