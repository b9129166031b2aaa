// The dictionary: what its files may say, and what it says of descriptors and values.

#include <gmock/gmock.h>

#include "client/core/labels.h"

namespace nyxctl {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

TEST(Labels, LaterFilesReplaceMembersAndNotEntries) {
    label_book book;
    EXPECT_THAT(book.add(R"(["nyx.SystemTemperature.value_1"]
        name = "core temperature"
        unit = "°C"
        warn = 90
        critical = { above = 105, below = 5 })",
                         "first"),
                IsEmpty());
    EXPECT_THAT(book.add("[\"nyx.SystemTemperature.value_1\"]\nname = \"die\"\nshort = false", "second"),
                IsEmpty());
    const label_s *label = book.find("nyx.SystemTemperature.value_1");
    ASSERT_TRUE(label);
    EXPECT_EQ(label->name, "die");
    EXPECT_EQ(label->is_short, false);
    EXPECT_EQ(label_text(*label, 58), "58 °C");
    EXPECT_TRUE(label->warn.passed(91) && !label->warn.passed(90) && !label->warn.passed(0));
    EXPECT_TRUE(label->critical.passed(106) && label->critical.passed(4) && !label->critical.passed(5));
    EXPECT_FALSE(book.find("nyx.SystemTemperature.value_2"));
}

TEST(Labels, ShortKeysOfTablesMeanTheirFields) {
    label_book book;
    EXPECT_THAT(book.add("[\"flow.k1\"]\nname = \"source\"", "file"), IsEmpty());
    EXPECT_EQ(label_word(book.find("nyx.flow_key_t.k1")), "source");
    EXPECT_FALSE(book.find("nyx.l2_flow_key_t.k1"));
    EXPECT_THAT(label_targets("flow_key_native.mask.k2"), ElementsAre("nyx.flow_key_native_key_mask_t.k2"));
    EXPECT_THAT(label_targets("flow_key_native.d1"),
                ElementsAre("nyx.flow_key_native_native_ipv4_packet_data_t.d1",
                            "nyx.flow_key_native_native_ipv6_packet_data_t.d1"));
    EXPECT_THAT(label_targets("flow_key_native.native_ipv6_packet_data.d1"),
                ElementsAre("nyx.flow_key_native_native_ipv6_packet_data_t.d1"));
    EXPECT_THAT(label_targets("nyx.PortSpec.number_a"), ElementsAre("nyx.PortSpec.number_a"));
}

TEST(Labels, NumbersAreShownByTextThenScaleAndUnit) {
    label_book book;
    EXPECT_THAT(book.add(R"([a]
        scale = 0.001
        unit = "V"
        values = { "0" = "off" }
        [b]
        unit = "frames"
        [c]
        name = " RX: frames, good ")",
                         "file"),
                IsEmpty());
    EXPECT_EQ(label_text(*book.find("a"), 0), "off");
    EXPECT_EQ(label_text(*book.find("a"), 850), "0.85 V");
    EXPECT_EQ(label_text(*book.find("b"), UINT64_MAX), "18446744073709551615 frames");
    EXPECT_EQ(label_text(*book.find("c"), 1), "");
    EXPECT_EQ(label_word(book.find("c")), "rx_frames_good");
}

TEST(Labels, WhatIsWrongIsNamedAndTheRestTaken) {
    label_book book;
    EXPECT_THAT(book.add(R"([a]
unit = 5
nmae = "x"
warn = "hot"
values = { "1" = 2 }
help = "kept"
[nyx.PortSpec]
number_a = { name = "MTU" }
)",
                         "file"),
                UnorderedElementsAre(
                    "file:2: a: unit: give a text", HasSubstr("file:3: a: unknown \"nmae\"; nearest: name"),
                    HasSubstr("file:5: a: values: give texts"), HasSubstr("file:4: a: warn: give a number"),
                    HasSubstr("file:7: nyx: unknown \"PortSpec\"; put the whole key")));
    EXPECT_EQ(book.find("a")->help, "kept");
    EXPECT_THAT(book.add("[b]\nname =", "file"), ElementsAre(HasSubstr("file:2: ")));
    EXPECT_THAT(book.add("[[\n", "file"),
                ElementsAre(HasSubstr("file:")));  // on which the reader would assert
    EXPECT_FALSE(book.find("b"));
}

}  // namespace
}  // namespace nyxctl
