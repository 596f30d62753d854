#include "transport/bench_routines.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "transport/serial.h"
#include "transport/uart.h"

int32_t serial_test()
{
    const int32_t fd = serial_open("/dev/ttyS4");
    if (fd < 0 || serial_set(fd, 115200, 8, 'N', 1) < 0) {
        return 1;
    }
    uint8_t digits[5000];
    for (uint32_t i = 0; i < sizeof digits; ++i) {
        digits[i] = static_cast<uint8_t>('0' + i % 10);
    }
    serial_write(fd, digits, sizeof digits); // who watches the bench sees what arrives
    constexpr uint32_t kMost = 8192;
    char szBuffer[kMost + 1]; // room to close the text after a full read
    for (;;) {
        std::memset(szBuffer, 0, sizeof szBuffer);
        const int32_t len = serial_read(fd, szBuffer, kMost);
        if (len > 0) {
            std::printf("len =  %d ,szBuffer = %s \n", len, szBuffer);
        }
        usleep(1000);
    }
}

void UART_test_tx()
{
    for (;;) {
        UARTSendBuffer(0, reinterpret_cast<const uint8_t *>("hello "), 6);
        sleep(1);
    }
}

void UART_test_rx()
{
    char buffer[kUartReceiveBuffer];
    for (;;) {
        const int32_t length = UARTReceiveBuffer(0, buffer, sizeof buffer - 1);
        if (length > 0) {
            buffer[length] = '\0';
            std::fputs(buffer, stdout); // not printf: received text must never act as a format
        } else {
            std::puts("no thing");
        }
        sleep(1);
    }
}
