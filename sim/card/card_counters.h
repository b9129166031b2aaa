// What the counters of the stand-in's card count. Those without a name only have the value of the card's start.

#pragma once

namespace sim {

// MAC counters of a port, the same for data and management ports.
enum port_counter_e {
    PORT_RX_FRAMES = 0,  // without those that are counted as errors
    PORT_RX_BYTES = 1,
    PORT_RX_ERRORS = 2,
    PORT_TX_FRAMES = 16,
    PORT_TX_BYTES = 17,
    PORT_COUNTERS = 32,  // of a management port
};

// Words of a LIF: the low 32 bits.
enum lif_counter_e {
    LIF_RX_PACKETS = 0,  // lif_word_1: from the host
    LIF_TX_PACKETS = 1,  // lif_word_2: to the host
    LIF_DROPS = 2,       // lif_word_3: on their way to the host; the packet buffer counts them too
    LIF_COUNTERS = 3,
};

// Words of a session: of its initiator, then of its responder.
enum session_counter_e {
    SESSION_PACKETS = 0,
    SESSION_BYTES = 1,
    SESSION_REPLY_PACKETS = 2,
    SESSION_REPLY_BYTES = 3,
    SESSION_COUNTERS = 4,
};

// Words of the flow summary: flows by IP version, and the same ones by protocol.
enum flow_counter_e {
    FLOWS = 0,
    FLOWS_V4 = 1,
    FLOWS_V6 = 2,
    FLOWS_TCP = 3,
    FLOWS_UDP = 4,
    FLOWS_ICMP = 5,
    FLOWS_OTHER = 6
};

// Words of the data-path assist: packets, which are handled or dropped; drops by reason.
enum assist_counter_e {
    ASSIST_PACKETS = 0,
    ASSIST_HANDLED = 1,
    ASSIST_DROPS = 2,
    ASSIST_DROPS_FULL = 3,
    ASSIST_DROPS_INVALID = 4
};

// Ports of the packet buffer: the data ports 1 and 2, the management port, all LIFs. Packets in its input queue 0 are those
// in its output queue 0 and its drops.
enum packet_buffer_port_e { BUFFER_PORT_1 = 0, BUFFER_PORT_2 = 1, BUFFER_MGMT = 2, BUFFER_HOST = 7 };

constexpr unsigned k_drop_link_down = 13;  // drop reason: the port that a packet should have left by is down

}  // namespace sim
