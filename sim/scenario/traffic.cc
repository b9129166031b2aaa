#include "sim/scenario/traffic.h"

#include "sim/scenario/seeded.h"

namespace sim {

namespace {

constexpr uint64_t k_million = 1'000'000, k_second_ms = 1000, k_packets_of_a_flow = 1000;

constexpr size_t buffer_port(endpoint place) { return place < k_ports ? place : size_t{BUFFER_HOST}; }

// Of so many packets. Never less for more packets, so that it can be taken of sums.
uint64_t part(uint64_t packets, uint64_t of_a_million) {
    return packets / k_million * of_a_million + packets % k_million * of_a_million / k_million;
}

traffic_s back(traffic_s there) {
    std::swap(there.from, there.to);
    there.packets = there.replies;
    there.bytes = there.reply_bytes;
    return there;
}

}  // namespace

traffic::traffic(std::span<const traffic_s> stanzas, uint64_t seed) : seed_(seed) {
    for (const auto &stanza : stanzas) {
        directions_.push_back({stanza, directions_.size(), SESSION_PACKETS});
        directions_.push_back({back(stanza), directions_.size(), SESSION_REPLY_PACKETS});
    }
}

void traffic::pass(uint64_t from_ms, uint64_t to_ms, const links &up, growth_s *growth) {
    const auto is_up = [&](endpoint place) { return place >= k_ports || up[place]; };
    for (auto &direction : directions_) {
        const passed_s before = direction.passed;
        const uint64_t packets = packets_until(direction, to_ms) - packets_until(direction, from_ms);
        if (packets > 0 && is_up(direction.stanza.from)) {
            (is_up(direction.stanza.to) ? direction.passed.sent : direction.passed.lost) += packets;
            count(direction, before, growth);
        }
    }
}

void traffic::count(const direction_s &direction, const passed_s &before, growth_s *growth) const {
    const auto &[stanza, number, in_session, now] = direction;
    const uint64_t lost = now.lost - before.lost, in = now.sent - before.sent + lost;
    const uint64_t dropped = part(now.sent, stanza.drops) - part(before.sent, stanza.drops);
    const uint64_t out = in - lost - dropped;
    if (stanza.from < k_ports) {
        auto &port = growth->ports[stanza.from];
        port[PORT_RX_FRAMES] += in;
        port[PORT_RX_BYTES] += in * stanza.bytes;
        port[PORT_RX_ERRORS] += part(now.sent, stanza.errors) - part(before.sent, stanza.errors);
    } else {
        growth->lifs[stanza.from - k_ports][LIF_RX_PACKETS] += in;
    }
    auto &buffer = growth->buffer[buffer_port(stanza.from)];
    buffer.in += in;
    buffer.out += out;
    buffer.drops[stanza.drop_reason] += dropped;
    buffer.drops[k_drop_link_down] += lost;
    if (stanza.to < k_ports) {
        growth->ports[stanza.to][PORT_TX_FRAMES] += out;
        growth->ports[stanza.to][PORT_TX_BYTES] += out * stanza.bytes;
    } else {
        growth->lifs[stanza.to - k_ports][LIF_TX_PACKETS] += out;
        growth->lifs[stanza.to - k_ports][LIF_DROPS] += lost + dropped;
    }
    if (stanza.session > 0) {
        auto &session = growth->sessions[static_cast<uint32_t>(stanza.session)];
        session[in_session] += out;
        session[in_session + 1] += out * stanza.bytes;
    }
    growth->flows += now.sent / k_packets_of_a_flow - before.sent / k_packets_of_a_flow;
}

// How far the traffic is ahead of its average at the beginning of a second.
uint64_t traffic::ahead(const direction_s &direction, uint64_t second) const {
    const uint64_t most = part(direction.stanza.packets, direction.stanza.burst * (k_million / 100));
    return second == 0 ? 0 : seeded(seed_, direction.number, second) % (most + 1);
}

// Never less for a later time: within a second, the average is above what the traffic can fall back.
uint64_t traffic::packets_until(const direction_s &direction, uint64_t ms) const {
    const uint64_t second = ms / k_second_ms, packets = direction.stanza.packets;
    const uint64_t now = ahead(direction, second), next = ahead(direction, second + 1);
    return second * packets + now + (packets + next - now) * (ms % k_second_ms) / k_second_ms;
}

}  // namespace sim
