/* What the firmware is built for. BOARD_REV comes from the command line. */
#ifndef CONFIG_H
#define CONFIG_H

#ifndef BOARD_REV
#error BOARD_REV is not set: use -DBOARD_REV=1 or 2
#endif

#if BOARD_REV >= 2
#define LED_PIN 5
#define USE_UART 1
#elif BOARD_REV == 1
#define LED_PIN 13
#define USE_UART 0
#else
#error unknown board
#endif

#define F_CPU 16000000u
#define TICK_HZ 8000u
#define BLINK_MS 500
#define UART_BAUD 9600u

#assert F_CPU % TICK_HZ == 0

#define NOTHING ((void)0)
#ifdef NDEBUG
#define ASSERT(cond) NOTHING
#else
#define ASSERT(cond) ((cond) ? NOTHING : fail(#cond, __FILE__, __LINE__))
void fail(const char *what, const char *file, int line);
#endif

#endif
