// The report is written through stdio streams of the C library, for three reasons: a heading is a
// few bytes, the label count is written over the first line at the end, and a run that ends with
// errors never closes the report, whose text must reach the files all the same; stdio flushes its
// streams at exit.

#include "common/html.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "common/alert.h"
#include "common/host.h"
#include "common/kvdebug.h"

namespace kv {

// The writer's state, of which there is one per run.
struct html_stream {
  struct table {
    int columns;
    int cells;  // written in the current row
  };

  std::FILE* html_out = nullptr;  // the frame page until the frames are set up, then the content
  std::FILE* html_toc = nullptr;
  std::string join_prefix;  // report_dir with its separator; empty without a directory part
  std::string main_filename;
  std::string toc_filename;
  std::string style_sheet;  // empty: none
  int toc_level = 0;
  int labelCnt = 0;           // contents lines written; the next anchor
  std::vector<table> tables;  // the current one last
};

namespace {

// Made by html_open, kept until exit: its streams may be open until then.
html_stream* report = nullptr;

// CSS class of everything written; nobody has needed one yet.
constexpr std::string_view class_name = "";

constexpr long label_count_offset = 14;

void write(std::FILE* stream, std::string_view text) {
  if (stream) std::fwrite(text.data(), 1, text.size(), stream);
}

template <formattable... A>
void write(std::FILE* stream, std::string_view text, const A&... args) {
  if (stream) write(stream, std::string_view(format_string(text, args...)));
}

std::FILE* create(const std::string& path, const char* failure_type) {
  std::FILE* const stream = std::fopen(host::native_path(path.c_str()).c_str(), "w");
  if (stream == nullptr) alert_typed(failure_type, "Could not open file %s", path);
  return stream;
}

void close(std::FILE*& stream) {
  if (stream) std::fclose(stream);
  stream = nullptr;
}

// The path's last backslash, without one its last slash, without one its last colon.
std::size_t find_separator(std::string_view path) {
  for (const char separator : {'\\', '/', ':'}) {
    const std::size_t at = path.rfind(separator);
    if (at != std::string_view::npos) return at;
  }
  return std::string_view::npos;
}

void set_names(html_stream& r, std::string_view path) {
  const std::size_t separator = find_separator(path);
  if (separator != std::string_view::npos) {
    r.join_prefix = path.substr(0, separator);
    if (!r.join_prefix.ends_with('\\')) r.join_prefix += '\\';
    path.remove_prefix(separator + 1);
  }
  r.main_filename = path;
  r.toc_filename = "toc_" + r.main_filename;
}

void write_head(const html_stream& r, const char* title, const char* title_suffix) {
  write(r.html_out, "<HTML>\n<HEAD>\n");
  if (title) {
    write(r.html_out, "<TITLE>%s%s</TITLE>\n", title, title_suffix ? title_suffix : "");
  }
  if (!r.style_sheet.empty()) {
    write(r.html_out, "<LINK rel=stylesheet href=\"%s\" type=\"text/css\">\n", r.style_sheet);
  }
  write(r.html_out, "</HEAD>\n<BODY>\n");
}

void write_contents_line(const html_stream& r, int level, std::string_view text) {
  std::string indent = " ";
  for (int i = 1; i < level; ++i) indent += "&nbsp";
  const std::string target = format_string("%s#%d", r.main_filename, r.labelCnt);
  write(r.html_toc, "%s <a class=\"%s\" HREF=\"%s\"%s>%s</A><br>\n", indent, class_name, target,
        "target=\"main\"", text);
}

}  // namespace

html_stream* html_open(const char* path, const char* title, const char* title_suffix,
                       const char* style_sheet) {
  if (report == nullptr) report = new html_stream;
  html_stream& r = *report;
  close(r.html_out);
  close(r.html_toc);
  r = html_stream();
  set_names(r, path);
  if (style_sheet) r.style_sheet = style_sheet;
  r.html_out = create(path, "F");
  write_head(r, title, title_suffix);
  return r.html_out ? &r : nullptr;
}

void html_frames(int contents_level) {
  if (report == nullptr) return;
  html_stream& r = *report;
  r.toc_level = contents_level;
  if (r.html_toc) return;
  r.html_toc = create(r.join_prefix + r.toc_filename, "0");
  write(r.html_toc, "<!-- labelCnt:000: -->\n<i>Table of Contents</i><br>\n");
  r.main_filename.insert(0, "main_");
  write(r.html_out,
        "<frameset rows=\"15%%,85%%\"><frame name =\"toc\" src=\"%s\" />"
        "<frame name =\"main\" src=\"%s\" /></frameset></HTML>\n",
        r.toc_filename, r.main_filename);
  close(r.html_out);
  r.html_out = create(r.join_prefix + r.main_filename, "0");
  write_head(r, nullptr, nullptr);
}

void html_anchor(std::string_view name) {
  html_printf("<a name=\"%s\">", name);
}

void html_heading(int level, std::string_view text) {
  if (report == nullptr) return;
  html_stream& r = *report;
  const bool is_listed = r.html_toc && r.toc_level >= level;
  if (is_listed) html_printf("<a name=\"%d\">", r.labelCnt);
  html_printf("<h%d class=\"%s\">%s</h%d>\n", level, class_name, text, level);
  if (!is_listed) return;
  write_contents_line(r, level, text);
  ++r.labelCnt;
}

void html_cmdline(const char* const* argv, int count, std::string_view label) {
  html_anchor("CLA");
  html_heading(2, "Command Line Arguments for " + std::string(label));
  for (int i = 0; i < count; ++i) html_printf("<code>%s</code><br>\n", argv[i]);
}

void html_table_begin(int columns) {
  if (report == nullptr) return;
  report->tables.push_back({columns, 0});
  html_printf("<table class=\"%s\">\n", class_name);
}

void html_vcell(std::string_view text, std::span<const format_arg> args) {
  const bool has_table = report && !report->tables.empty();
  if (db_asserts_on() && !has_table) db_assert("curTable != NULL", __FILE__, __LINE__);
  if (!has_table) return html_vprintf(text, args);
  html_stream::table& current = report->tables.back();
  if (current.cells == current.columns) {
    html_printf("</td></tr>\n<tr>");
    current.cells = 0;
  } else {
    html_printf(current.cells > 0 ? "</td>" : "<tr>");
  }
  html_printf("<td>");
  html_vprintf(text, args);
  ++current.cells;
}

void html_vprintf(std::string_view text, std::span<const format_arg> args) {
  if (report) write(report->html_out, std::string_view(format_string(text, args)));
}

void html_text16(const char16_t* text) {
  html_printf("%ls", text);
}

void html_table_end() {
  const bool has_table = report && !report->tables.empty();
  if (db_asserts_on() && !has_table) db_assert("curTable != NULL", __FILE__, __LINE__);
  if (!has_table) return;
  report->tables.pop_back();
  html_printf("</td></table>\n");
}

void html_close() {
  if (report == nullptr) return;
  html_stream& r = *report;
  write(r.html_out, "</BODY>\n</HTML>\n");
  close(r.html_out);
  if (r.html_toc == nullptr) return;
  std::fseek(r.html_toc, label_count_offset, SEEK_SET);
  write(r.html_toc, "%3d", r.labelCnt);
  close(r.html_toc);
}

}  // namespace kv
