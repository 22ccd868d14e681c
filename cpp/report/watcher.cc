// The beginning and the end of a watched run, and its messages. What happens in between is noted by
// the modules beside this one, each of which keeps its part of the record until the end.
#include <ctime>

#include "common/alert.h"
#include "cpp/diag.h"
#include "cpp/frames.h"
#include "cpp/outbuf.h"
#include "cpp/report/calls.h"
#include "cpp/report/conditions.h"
#include "cpp/report/files.h"
#include "cpp/report/macros.h"
#include "cpp/report/observe.h"
#include "host/host.h"

namespace kv::cpp {

struct watch_switch {
  static void turn(bool on) { observing.value_ = on; }
};

namespace observe {

namespace {

constexpr auto& run = the<observed_run>;

// By alert_type.
constexpr message_kind kinds[] = {message_kind::warning, message_kind::fatal,
                                  message_kind::message, message_kind::error,
                                  message_kind::warning, message_kind::warning};

void note_message(const alert_report& report) {
  observed_message m{kinds[report.type], report.number, {}, report.line, std::string(report.text)};
  ++run().messages_by_kind[static_cast<std::size_t>(m.kind)];
  if (report.file != nullptr) {
    // In a macro's text the message names the macro.
    const bool in_text =
        cur_frame != nullptr && cur_frame->file == nullptr && file_read() != nullptr;
    m.file = in_text ? file_read()->path : portable_path(alert_str(report.file).c_str());
  }
  run().messages.add(std::move(m));
}

}  // namespace

void begin(std::vector<std::string> command, const char* input_name) {
  observed_run& o = run();
  o.command = std::move(command);
  o.directory = host::current_directory();
  o.input = input_name;
  o.started = static_cast<std::int64_t>(std::time(nullptr));
  begin_files();
  begin_macros();
  alert_set_listener(note_message);
  watch_switch::turn(true);
}

const observed_run& end(int status, bool complete) {
  observed_run& o = run();
  finish_files(o);
  watch_switch::turn(false);
  alert_set_listener(nullptr);
  o.status = status;
  o.complete = complete;
  o.bytes_written = outbuf::count();
  finish_macros(o);
  finish_calls(o);
  finish_conditions(o);
  return o;
}

}  // namespace observe
}  // namespace kv::cpp
