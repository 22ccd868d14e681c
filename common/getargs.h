// Arguments that do not come from the command line: typed at a prompt, read from a command file
// that the caller has put in the place of standard input, or from one named among the others.
//
// A line is cut into words at blanks, tabs and newlines. Quotes of either kind group and vanish; a
// backslash protects a quote, a blank or another backslash and stands for itself before anything
// else. What would surprise a reader: a tab ends a word even inside quotes, and neither an open
// quote nor a backslash at the end of a line ends with it; both carry over to the next word.
#pragma once

namespace kv {

/// The arguments: owned strings, then a null entry. Null until the first add_arg.
extern char** arg_vec;

/// The number of arguments in arg_vec.
extern unsigned arg_count;

/// Appends a copy of `text` to the vector. Raises 296 (fatal) without memory.
void add_arg(const char* text);

/// Starts a new vector with `progname` as entry 0, reads standard input to its end and appends the
/// words found; on a terminal it asks for each line with `progname` and "> ". Returns arg_vec,
/// which the caller keeps for the run. Raises 917 for a word of more than 2047 characters, which is
/// cut there and ends the reading, and 141 (fatal), which calls standard input `file`, when reading
/// fails.
char** getargs(const char* progname, const char* file);

/// The command files that expand_command_files reads at most; one that names itself ends there.
inline constexpr unsigned command_file_limit = 512;

/// Returns the `argc` arguments of `argv` with the words of FILE in the place of each `@FILE`, and
/// so on for those words, and sets `argc` to their number. An argument stays as it is if there is a
/// file of the name `@FILE` itself, or none of the name FILE. The result is arg_vec, or `argv`
/// where nothing is replaced. Raises 917 as getargs does, and 141 (fatal) for a file that cannot be
/// opened, or is one too many.
char** expand_command_files(int& argc, char** argv);

}  // namespace kv
