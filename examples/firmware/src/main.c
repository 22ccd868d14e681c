/* Blinks, and tells of it on the serial line. */
#include "board.h"
#include "scheduler.h"
#include "uart.h"
#include "version.h"

unsigned char port_direction[PORTS];
unsigned char port_value[PORTS];

#define SET_DIRECTION(name, port, bit, is_out) \
  if (is_out) DIRECTION(port) |= BIT(bit);

static void blink(void) {
  VALUE('B') ^= BIT(5);
  uart_write("led ");
  uart_write_number(VALUE('B') >> 5 & 1);
  uart_write("\n");
}

int main(void) {
  FOR_EACH_PIN(SET_DIRECTION)
  uart_start();
  uart_write(VERSION_TEXT "\n");
  scheduler_add(blink);
  scheduler_run(3);
  return 0;
}
