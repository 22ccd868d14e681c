/* The board: which pins it has, how its clock runs, and the registers of its ports. */
#ifndef BOARD_H
#define BOARD_H

#include "pins.h"

#ifndef BOARD_REV
#error "BOARD_REV is not set"
#endif

#if BOARD_REV >= 2
#define F_CPU 16000000ul
#else
#define F_CPU 8000000ul
#endif

#define PORTS 4
#define PORT_INDEX(port) ((port) - 'A')

extern unsigned char port_direction[PORTS];
extern unsigned char port_value[PORTS];

/* A pin is a port and a bit; the macros take both as one argument. */
#define DIRECTION(port) port_direction[PORT_INDEX(port)]
#define VALUE(port) port_value[PORT_INDEX(port)]
#define BIT(bit) (1u << (bit))

#endif
