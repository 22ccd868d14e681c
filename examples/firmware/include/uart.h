/* The serial line. */
#ifndef UART_H
#define UART_H

#define UART_BAUD 9600ul
#define UART_DIVIDER(clock) ((clock) / (16ul * UART_BAUD) - 1ul)

void uart_start(void);
void uart_write(const char *text);
void uart_write_number(unsigned long number);

#endif
