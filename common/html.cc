// Each page gathers its text and writes it in blocks; the table of contents is written at the end,
// since its first line holds the count of its labels. All pages stay open until then, also the
// frame page, which is complete early: a file that is open cannot become another one of the run.

#include "common/html.h"

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "common/alert.h"
#include "common/kvdebug.h"
#include "common/outfile.h"
#include "host/host.h"

namespace kv {
namespace {

constexpr std::size_t page_block = 65536;

// One page, with the text that has not been written yet. It does nothing while it is not open.
class page {
 public:
  // Raises a text of the given type when the file cannot be created.
  void create(std::string path, const char* failure_type) {
    path_ = std::move(path);
    if (file_.open(path_.c_str(), host::write_place::from_start, host::content::text)) return;
    if (errno == host::error_in_use) refuse_file("report", path_.c_str());
    alert_typed(failure_type, "Could not open file %s", path_);
  }

  bool is_open() const { return file_.is_open(); }

  void add(std::string_view text) {
    if (is_open()) text_ += text;
  }

  template <formattable... A>
  void add(std::string_view text, const A&... args) {
    if (is_open()) text_ += format_string(text, args...);
  }

  void overwrite(std::size_t at, std::string_view text) {
    if (is_open()) text_.replace(at, text.size(), text);
  }

  void flush() {
    file_.write(text_);
    text_.clear();
  }

  void flush_blocks() {
    if (text_.size() >= page_block) flush();
  }

  void finish() {
    if (is_open()) file_.finish(text_);
    text_.clear();
  }

 private:
  std::string path_;
  out_file file_{"report"};
  std::string text_;
};

}  // namespace

// The writer's state, of which there is one per run.
struct html_stream {
  struct table {
    int columns;
    int cells;  // written in the current row
  };

  page frames;
  page html_toc;
  page content;
  page* html_out = &frames;  // the frame page until the frames are set up, then the content
  std::string join_prefix;   // report_dir with its separator; empty without a directory part
  std::string main_filename;
  std::string toc_filename;
  std::string style_sheet;  // empty: none
  int toc_level = 0;
  int labelCnt = 0;           // contents lines written; the next anchor
  std::vector<table> tables;  // the current one last
};

namespace {

// Made by html_open, kept until exit.
html_stream* report = nullptr;

// CSS class of everything written; nobody has needed one yet.
constexpr std::string_view class_name = "";

constexpr std::size_t label_count_offset = 14;

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

void write_head(html_stream& r, const char* title, const char* title_suffix) {
  r.html_out->add("<HTML>\n<HEAD>\n");
  if (title) r.html_out->add("<TITLE>%s%s</TITLE>\n", title, title_suffix ? title_suffix : "");
  if (!r.style_sheet.empty()) {
    r.html_out->add("<LINK rel=stylesheet href=\"%s\" type=\"text/css\">\n", r.style_sheet);
  }
  r.html_out->add("</HEAD>\n<BODY>\n");
}

void write_contents_line(html_stream& r, int level, std::string_view text) {
  std::string indent = " ";
  for (int i = 1; i < level; ++i) indent += "&nbsp";
  const std::string target = format_string("%s#%d", r.main_filename, r.labelCnt);
  r.html_toc.add("%s <a class=\"%s\" HREF=\"%s\"%s>%s</A><br>\n", indent, class_name, target,
                 "target=\"main\"", text);
}

}  // namespace

html_stream* html_open(const char* path, const char* title, const char* title_suffix,
                       const char* style_sheet) {
  html_end();
  delete report;
  report = new html_stream;
  html_stream& r = *report;
  set_names(r, path);
  if (style_sheet) r.style_sheet = style_sheet;
  r.frames.create(path, "F");
  write_head(r, title, title_suffix);
  return r.frames.is_open() ? &r : nullptr;
}

void html_frames(int contents_level) {
  if (report == nullptr) return;
  html_stream& r = *report;
  r.toc_level = contents_level;
  if (r.html_toc.is_open()) return;
  r.html_toc.create(r.join_prefix + r.toc_filename, "0");
  r.html_toc.add("<!-- labelCnt:000: -->\n<i>Table of Contents</i><br>\n");
  r.main_filename.insert(0, "main_");
  r.frames.add(
      "<frameset rows=\"15%%,85%%\"><frame name =\"toc\" src=\"%s\" />"
      "<frame name =\"main\" src=\"%s\" /></frameset></HTML>\n",
      r.toc_filename, r.main_filename);
  r.frames.flush();
  r.html_out = &r.content;
  r.content.create(r.join_prefix + r.main_filename, "0");
  write_head(r, nullptr, nullptr);
}

void html_anchor(std::string_view name) {
  html_printf("<a name=\"%s\">", name);
}

void html_heading(int level, std::string_view text) {
  if (report == nullptr) return;
  html_stream& r = *report;
  const bool is_listed = r.html_toc.is_open() && r.toc_level >= level;
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
  if (report == nullptr) return;
  report->html_out->add(format_string(text, args));
  report->html_out->flush_blocks();
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
  report->html_out->add("</BODY>\n</HTML>\n");
  report->html_toc.overwrite(label_count_offset, format_string("%3d", report->labelCnt));
  html_end();
}

void html_end() {
  if (report == nullptr) return;
  for (page* each : {&report->frames, &report->content, &report->html_toc}) each->finish();
}

}  // namespace kv
