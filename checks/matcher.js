// Reads messages from standard input and writes what VS Code makes of them with the problem matchers
// of extras/vscode, as JSON: [{matcher, file, line, column, severity, message, code}]. The rules are
// those of the editor: the patterns of a matcher fit lines that follow each other, and with `loop`
// the last one goes on while it fits.
"use strict";
const fs = require("fs");

const manifest = JSON.parse(fs.readFileSync(process.argv[2], "utf8"));
const lines = fs.readFileSync(0, "utf8").split("\n");
const fields = ["file", "line", "column", "severity", "message", "code"];

function take(pattern, line, problem) {
  const match = new RegExp(pattern.regexp).exec(line);
  if (!match) return false;
  for (const field of fields) {
    if (field in pattern && match[pattern[field]] !== undefined) problem[field] = match[pattern[field]];
  }
  return true;
}

// The problems of one matcher.
function* problems(matcher) {
  const patterns = [].concat(matcher.pattern);
  for (let start = 0; start + patterns.length <= lines.length; ++start) {
    const shared = {};
    const leading = patterns.slice(0, -1);
    if (!leading.every((pattern, i) => take(pattern, lines[start + i], shared))) continue;
    const last = patterns[leading.length];
    for (let at = start + leading.length; at < lines.length; ++at) {
      const problem = { matcher: matcher.name, severity: matcher.severity, ...shared };
      if (!take(last, lines[at], problem)) break;
      yield problem;
      if (!last.loop) break;
    }
  }
}

console.log(JSON.stringify(manifest.contributes.problemMatchers.flatMap((m) => [...problems(m)])));
