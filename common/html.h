// The small HTML writer: a frame page, a table of contents and a content page.
//
// One report exists at a time. `html_open` begins the frame page, `html_frames` completes it and
// goes on with the content page, and everything else is written there; headings also get a line in
// the table of contents, whose label count is filled in by `html_close`.
//
// What may surprise: nothing is escaped, and a page that could not be created is skipped without
// ending the report.

#pragma once

#include <span>
#include <string_view>

#include "common/format.h"

namespace kv {

/// An HTML file being written; owned by the writer.
struct html_stream;

/// Creates the file `path` and writes its head, with a title (`title` followed by `title_suffix`)
/// and a style sheet unless these are null. Returns the stream. Raises "Could not open file %s",
/// which is fatal, and 141 (fatal) when the run uses the file already, as html_frames does for its
/// pages.
html_stream* html_open(const char* path, const char* title, const char* title_suffix,
                       const char* style_sheet);

/// Completes the frame page and begins the table of contents and the content page beside it.
/// Headings up to `contents_level` are listed in the contents; when these are open already, only
/// that level changes. Raises "Could not open file %s" as a warning of level 0 for each page that
/// cannot be created.
void html_frames(int contents_level);

/// An anchor, without a closing tag.
void html_anchor(std::string_view name);

/// A heading of the given level, with a line in the contents when these reach that level.
void html_heading(int level, std::string_view text);

/// A section with the `count` command-line arguments of the program called `label`.
void html_cmdline(const char* const* argv, int count, std::string_view label);

/// Begins a table of `columns` columns, nested in the current one if there is one.
void html_table_begin(int columns);

/// Ends the current table; there must be one.
void html_table_end();

/// Writes 16-bit text, one byte per unit, without its markers.
void html_text16(const char16_t* text);

/// Completes the content page and the table of contents, and closes all pages.
void html_close();

/// Closes all pages as they are. Nothing to do after html_close, or without a report.
void html_end();

void html_vcell(std::string_view text, std::span<const format_arg> args);
void html_vprintf(std::string_view text, std::span<const format_arg> args);

/// Begins the next cell, in a new row when the current one is full, with the formatted text.
template <formattable... A>
void html_cell(std::string_view text, const A&... args) {
  html_vcell(text, format_args(args...));
}

/// Adds the formatted text to the current cell.
template <formattable... A>
void html_printf(std::string_view text, const A&... args) {
  html_vprintf(text, format_args(args...));
}

}  // namespace kv
