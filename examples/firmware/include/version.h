/* What the program calls itself. */
#ifndef VERSION_H
#define VERSION_H

#define VERSION_MAJOR 1
#define VERSION_MINOR 2

#define TEXT_OF(x) #x
#define TEXT(x) TEXT_OF(x)
#define VERSION_TEXT "firmware " TEXT(VERSION_MAJOR) "." TEXT(VERSION_MINOR)

#endif
