/* The registers of the part: NAME_REG holds the address, NAME_BIT the bit's number. */
#ifndef REGS_H
#define REGS_H

#define TIMER_CTRL 0x40001000
#define TIMER_IF 0

#define UART_CTRL 0x40002000
#define UART_BAUD_ADDR 0x40002004
#define UART_DATA_ADDR 0x40002008
#define UART_EN 0
#define UART_RX 3

#define PORTA_OUT 0x40003000

#define REG(unit, name) (*(volatile unsigned *)unit##_##name##_ADDR)
#define CTRL(unit) (*(volatile unsigned *)unit##_CTRL)
#define BIT(n) (1u << (n))

#define SET(unit, flag) (CTRL(unit) |= 1u << unit##_##flag)
#define CLEAR(unit, flag) (CTRL(unit) &= ~(1u << unit##_##flag))
#define TEST(unit, flag) (CTRL(unit) & 1u << unit##_##flag)
#define TOGGLE(port, pin) (*(volatile unsigned *)port##_OUT ^= BIT(pin))

#define BAUD_DIVISOR(rate) ((F_CPU + 8u * (rate)) / (16u * (rate)))

#endif
