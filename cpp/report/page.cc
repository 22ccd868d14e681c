// The page is a file of cpp/report/page, with style and script put into it when the program is
// built; the data goes where a mark of its own stands. It is escaped so that it can
// (common/json.h), and the script puts it on the page as text and never as markup.
#include "cpp/report/page.h"

#include <string_view>

#include "common/json.h"
#include "common/outfile.h"
#include "cpp/report/json.h"
#include "cpp/report/observed.h"

namespace kv::cpp {

namespace {

// The bytes of the page, zero-ended.
constexpr unsigned char page_bytes[] = {
#include "page_bytes.inc"
    , 0};

constexpr std::string_view data_mark = "@DATA@";

constinit out_file report("report");
constinit const char* report_path = nullptr;

}  // namespace

void page_open(const char* path) {
  if (!report.open(path, host::write_place::from_start, host::content::text)) {
    refuse_file("report", path);
  }
  report_path = path;
}

bool page_is_open() {
  return report.is_open();
}

void page_write(const observed_run& run) {
  std::string_view before;
  std::string_view behind;
  if (!std::string_view(report_path).ends_with(".json")) {
    const std::string_view page(reinterpret_cast<const char*>(page_bytes), sizeof page_bytes - 1);
    const auto mark = page.find(data_mark);
    before = page.substr(0, mark);
    behind = page.substr(mark + data_mark.size());
  }
  report.begin_last();
  report.write(before);
  json_writer json([](std::string_view piece) { report.write(piece); });
  write_report(json, run);
  json.flush();
  report.write("\n");
  report.finish(behind);
}

}  // namespace kv::cpp
