" Vim compiler file for vex-cpp: ":compiler vex_cpp" makes the quickfix list understand its messages,
" those of --messages=gcc as well as the program's own layout.
"
" In the program's own layout the file's name stands on a line of its own, once for all messages of
" that file, then the source line with its number, and below it the caret with the message. Where the
" message stands before the caret, no format can tell the column: such an entry leads to the line.
if exists("current_compiler")
  finish
endif
let current_compiler = "vex_cpp"

let s:cpo_save = &cpo
set cpo&vim

if exists(":CompilerSet") != 2
  command -nargs=* CompilerSet setlocal <args>
endif

" --messages=gcc
CompilerSet errorformat=%f:%l:%c:\ fatal\ %trror:\ %m\ [%n]
CompilerSet errorformat+=%f:%l:%c:\ %trror:\ %m\ [%n]
CompilerSet errorformat+=%f:%l:%c:\ %tarning:\ %m\ [%n]
CompilerSet errorformat+=%f:%l:%c:\ %tote:\ %m\ [%n]
CompilerSet errorformat+=%f:%l:\ %tote:\ %m
CompilerSet errorformat+=cpp:\ fatal\ %trror:\ %m\ [%n]
CompilerSet errorformat+=cpp:\ %trror:\ %m\ [%n]
CompilerSet errorformat+=cpp:\ %tarning:\ %m\ [%n]

" A message of the own layout in one line: where no place in a line is known.
CompilerSet errorformat+=%W%f:\ %l:\ (%n)\ %m\ (warning)
CompilerSet errorformat+=%E%f:\ %l:\ (%n)\ %m
CompilerSet errorformat+=%I%f:\ %l:\ %m

" The file's name, the source line, the caret; the message behind the caret or before it.
CompilerSet errorformat+=%-P%f:
CompilerSet errorformat+=%A%*[\ ]%l:%*[\	]%.%#
CompilerSet errorformat+=%Z%*[\	]%p^\ (%n)\ %m\ (%tarning)
CompilerSet errorformat+=%Z%*[\	]%p^\ (%n)\ %m
CompilerSet errorformat+=%Z%*[\	]%*[\ ](%n)\ %m\ ^\ (%tarning)
CompilerSet errorformat+=%Z%*[\	]%*[\ ](%n)\ %m\ ^

let &cpo = s:cpo_save
unlet s:cpo_save
