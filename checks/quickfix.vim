" Writes the quickfix list that the messages in $MESSAGES give, as JSON, to $QUICKFIX.
set nocompatible
compiler vex_cpp
cgetfile $MESSAGES
let s:entries = map(getqflist(), {_, e -> extend(e, {'file': bufname(e.bufnr)})})
call writefile([json_encode(s:entries)], $QUICKFIX)
qall!
