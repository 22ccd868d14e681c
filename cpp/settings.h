// What the command line has set for the run. Nothing below it knows how an option is spelled.
#pragma once

#include "cpp/owned.h"

namespace kv::cpp {

// The values of `dep_mode`.
inline constexpr int dep_none = 0;
inline constexpr int dep_list = 1;
inline constexpr int dep_gcc = 2;

inline constexpr unsigned ident_max_least = 31;
inline constexpr unsigned ident_max_most = 255;

/// Everything the command line can set and other modules read; one instance for the run.
struct run_settings {
  bool dump_macros = false;        ///< -dM
  bool keep_comments = false;      ///< -C
  int listing_style = 0;           ///< -E and a digit: the layout of echoed source lines
  const char* source_name = "";    ///< -F: the name given to the primary input; not owned
  bool show_includes = false;      ///< -H
  int dep_mode = dep_none;         ///< -L
  int no_predef = 0;               ///< -N without a number; read by nothing
  unsigned ident_max = 0;          ///< -N and a number: significant units of an identifier
  bool show_search_path = false;   ///< -V
  int warn_level = 0;              ///< -W
  bool macro_report = false;       ///< --udf=: the macro report is open
  int max_errors = 10;             ///< --emax=
  bool cmode_asm = false;          ///< --cmode=tsasm: the assembler conventions
  bool dep_nosys = false;          ///< --dep_nosys
  const char* dep_file = nullptr;  ///< --dep=: the file of the rule; not owned
  bool dep_phony = false;          ///< --dep_phony: an empty rule for each header
  bool delete_on_error = false;    ///< --delete_on_error
  bool gcc_markers = false;        ///< --markers=gcc: markers that other programs read
  bool gcc_messages = false;       ///< --messages=gcc: messages that other programs read
};
inline constinit owned<run_settings, struct settings_writer> chosen_settings{run_settings{}};
inline constexpr const run_settings& settings = chosen_settings;

/// Whether preprocessed text is written: not while dependencies are listed.
inline bool text_output() {
  return settings.dep_mode == dep_none;
}

}  // namespace kv::cpp
