#include "cpp/macro_report.h"

#include "common/html.h"
#include "cpp/settings.h"
#include "cpp/symtab.h"

namespace kv::cpp {

namespace {

void arguments_cell(int nargs) {
  if (nargs == 0) {
    html_cell("empty");
  } else if (nargs < 0) {
    html_cell("none");
  } else {
    html_cell("%d", nargs);
  }
}

// One unit of a body, in the report's own notation. Nothing is escaped.
void body_unit(int c) {
  if (c == MARK_DIGITS_END) c = MARK_PASTE;
  if (is_param_ref(c)) {
    html_printf("<%d>", c - MARK_PARAM_BASE);
  } else if (c == MARK_STRINGIZE) {
    return;
  } else if ((c >= 0x20 && c <= 0x7E) || c == '\t' || c == '\n') {
    html_printf("%c", static_cast<char>(c));
  } else if (c >= 0x20) {
    html_printf("<\\0%o>", static_cast<unsigned>(c));
  } else {
    html_printf("<^%c>", static_cast<char>(c + 64));
  }
}

}  // namespace

bool macro_report_open(const char* path) {
  const bool open = html_open(path, "CPP information for ", path, "udf_styles.css") != nullptr;
  html_frames(3);
  return open;
}

void macro_report_command_line(int argc, char* const* argv) {
  html_anchor("CPP");
  html_cmdline(argv, argc, "CPP");
}

void macro_report_table() {
  html_anchor("symbol_table");
  html_heading(2, "CPP symbol table");
  html_table_begin(3);
  html_cell("<b>Macro name</b>");
  html_cell("<b>Arguments</b>");
  html_cell("<b>Value</b>");
  for (std::size_t n = 0; n < symtab_chains; ++n) {
    for (const symbol* sym = symtab(n); sym != nullptr; sym = sym->link) macro_report_row(sym);
  }
}

void macro_report_row(const symbol* sym) {
  html_cell("<code>");
  html_text16(sym->name);
  html_printf("</code>");
  arguments_cell(sym->nargs);
  if (sym->body == nullptr) {
    html_cell("<i>dynamic replacement</i>");
    return;
  }
  html_cell("");
  for (const unit* p = sym->body; *p != 0; ++p) body_unit(*p);
}

void macro_report_close() {
  html_table_end();
  html_close();
}

void macro_report_end() {
  html_end();
}

}  // namespace kv::cpp
