/*
 * Blinks the board's LED and answers each byte on the UART with its echo.
 * Preprocess it with:  cpp -Iinclude -DBOARD_REV=2 blink.c
 */
#include <config.h>
#include <regs.h>

#define TICKS(ms) ((ms) * (TICK_HZ / 1000u)) /* milliseconds to timer ticks */

static volatile unsigned long ticks;

void interrupt tick_isr(void) {
  CLEAR(TIMER, IF);
  ++ticks;
}

#if USE_UART
static void uart_init(void) {
  REG(UART, BAUD) = BAUD_DIVISOR(UART_BAUD);
  SET(UART, EN);
}

static void uart_echo(void) {
  if (TEST(UART, RX))
    REG(UART, DATA) = REG(UART, DATA);
}
#else
#define uart_init() NOTHING
#define uart_echo() NOTHING
#endif

int main(void) {
  unsigned long next = TICKS(BLINK_MS);

  ASSERT(next > 0);
  uart_init();
  for (;;) {
    if (ticks >= next) {
      TOGGLE(PORTA, LED_PIN);
      next += TICKS(BLINK_MS);
    }
    uart_echo();
#asm
    nop            ; let the debugger in
#endasm
  }
}
