#include "transport/bridge.h"

#include "core/pipe.h"
#include "transport/bridge_pipes.h"
#include "transport/uart.h"
#include "transport/udpecho.h"

namespace {

// State, main loop only: the batch in transit, one for each direction.
uint8_t udp_temp_receive_buf[kBridgeBufferSize]; // to UART 0
uint8_t udp_temp_send_buf[kBridgeBufferSize];    // to the PC

} // namespace

void udpSendBuffer(const uint8_t *bytes, uint32_t length)
{
    // The acquires pair with the releases in udpReceiveBuffer.
    const uint32_t ip = udp_chanel_value[0].load(std::memory_order_acquire);
    const uint32_t port = udp_chanel_value[1].load(std::memory_order_acquire);
    if (ip != 0 || port != 0) {
        to_pcudp(ip, static_cast<uint16_t>(port), bytes, length);
    }
}

int32_t udpReceiveTask()
{
    const uint32_t count =
        pipe_read_block(&udp_receive_pipe, udp_temp_receive_buf, sizeof udp_temp_receive_buf);
    return count > 0 ? UARTSendBuffer(0, udp_temp_receive_buf, static_cast<int32_t>(count)) : 0;
}

void udpSendTask()
{
    const uint32_t count =
        pipe_read_block(&udp_send_pipe, udp_temp_send_buf, sizeof udp_temp_send_buf);
    if (count > 0) {
        udpSendBuffer(udp_temp_send_buf, count);
    }
}

void udp2uart_task()
{
    udpReceiveTask(); // dropped: UARTSendBuffer() logs its failures, and nothing is sent twice
    udpSendTask();
}
