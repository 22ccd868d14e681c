// What is passed over in the text of a file, at sight: comments, and the lines of skipped groups.
#pragma once

#include "cpp/charclass.h"
#include "cpp/lanes.h"
#include "cpp/token.h"

namespace kv::cpp::lane {

/// The end of the comment that `p` stands at, a `/`: behind it, or at the newline for one that runs
/// to it. Null where there is none, and where it does not end before `limit`, the newline of the
/// line or the end of the text, or raises a message.
template <class Text>
Text* end_of_comment(Text* p, Text* limit) {
  const bool block = p[1] == '*';
  if (!block && p[1] != '/') return nullptr;
  const unsigned char a = block ? '*' : '\\';
  const unsigned char b = block ? '/' : '\n';
  for (p += 2;; ++p) {
    p = find_any(p, limit, a, b, '?', 0);
    if (p == limit) return block ? nullptr : p;
    if (*p == '\n') return p;
    if (*p == 0 || *p == '\\' || (*p == '?' && p[1] == '?')) return nullptr;
    if (*p == '/' && p[1] == '*') return nullptr;
    if (*p == '*' && p[1] == '/') break;
  }
  p += 2;
  return *p == 0 ? nullptr : p;
}

/// The end of the literal that the quote at `p`, in a skipped line, opens and the line closes; just
/// behind the quote where the line does not close it. Null where the plain path must tell: where
/// raw text is translated, and where the line does not end before `limit`.
template <class Text>
Text* skipped_literal_end(Text* p, Text* limit) {
  if (find_any(p, limit + 1, '\n') > limit) return nullptr;
  literal_cursor<Text> in{p + 1};
  if (take_literal(in, *p, [](int /*c*/) {}) == *p) return in.at <= limit ? in.at : nullptr;
  return in.at != limit && *in.at == '\n' ? p + 1 : nullptr;
}

/// Where the literal ends that holds `p`, in a skipped line of which nothing before `clear` is in a
/// literal: null where there is none; not behind `p` where the plain path must tell, from there on.
template <class Text>
Text* end_of_literal_around(Text* p, Text* clear, Text* limit) {
  while ((clear = find_any(clear, p, '"', '\'')) != p) {
    Text* const end = skipped_literal_end(clear, limit);
    if (end == nullptr || end > p) return end == nullptr ? clear : end;
    clear = end;
  }
  return nullptr;
}

/// The first byte in [p, limit) that ends a line of a skipped group or can matter there, or
/// `limit`. `p` is not inside a literal. Quotes are looked for only where something stands that a
/// literal would hide. Inline where it is used for line after line, with what it looks for at hand.
template <class Text>
CPP_INLINE Text* find_skipped_end(Text* p, Text* limit) {
  Text* clear = p;
  for (;; ++p) {
    p = find_any(p, limit, '\n', '/', '\\', '?', 0);
    if (p == limit || *p == '\n') return p;
    if (*p == '/' && p[1] != '*' && p[1] != '/') continue;
    if (*p == '\\' && plain::in_file(p[1]) && kinds[p[1]] != blank) continue;
    if (*p == '?' && p[1] != '?') continue;
    Text* const end = end_of_literal_around(p, clear, limit);
    if (end == nullptr) return p;
    if (end <= p) return end;
    clear = end;
    p = end - 1;
  }
}

/// Leaves in the line what the reader leaves there of a comment, which ends at `behind`: a space in
/// place of its closing `/`, unless white space follows.
inline void leave_comment_space(unsigned char* behind) {
  if (kinds[*behind] != blank && *behind != '\n') behind[-1] = ' ';
}

}  // namespace kv::cpp::lane
