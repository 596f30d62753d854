#include "transport/bridge_pipes.h"

struct pipe udp_receive_pipe;
struct pipe udp_send_pipe;
std::atomic<uint32_t> udp_chanel_value[2];

namespace {

// State: the pipes' storage, touched through the pipes only.
uint8_t udp_receive_buf[kBridgeBufferSize];
uint8_t udp_send_buf[kBridgeBufferSize];

} // namespace

void udp_receive_pipe_init()
{
    pipe_init(&udp_receive_pipe, udp_receive_buf, sizeof udp_receive_buf);
    pipe_init(&udp_send_pipe, udp_send_buf, sizeof udp_send_buf);
}

void udpReceiveBuffer(uint32_t ip, uint32_t port, const uint8_t *bytes, uint32_t length)
{
    // The releases pair with the acquires in udpSendBuffer.
    udp_chanel_value[0].store(ip, std::memory_order_release);
    udp_chanel_value[1].store(port, std::memory_order_release);
    // One block, so the main loop never sees part of what was stored. What does not fit is lost.
    pipe_write_block(&udp_receive_pipe, bytes, length);
}
