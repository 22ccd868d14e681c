/* The serial line. On a host its bytes go to standard output. */
#include "uart.h"
#include "board.h"

extern int putchar(int c);

static unsigned long divider;

void uart_start(void) {
  divider = UART_DIVIDER(F_CPU);
  uart_write("divider ");
  uart_write_number(divider);
  uart_write("\n");
}

void uart_write(const char *text) {
  while (*text) putchar(*text++);
}

void uart_write_number(unsigned long number) {
  if (number >= 10) uart_write_number(number / 10);
  putchar((int)('0' + number % 10));
}
