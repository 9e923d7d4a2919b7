// SPDX-License-Identifier: Apache-2.0
#include "core/parameters.h"
#include "core/text_values.h"
#include "private_world.h"

namespace lnkd {

TEST(TextValues, PassTheTrustBoundaryOnlyWhenHarmlessToAShell) {
    for (const char* text : {"wlan0", "_x", "a-b.c:d", "123456789012345"})
        EXPECT_TRUE(isInterfaceName(text)) << text;
    for (const char* text : {"", "1234567890123456", "-a", ".", "../x", "a b", "a;b", "a\n", "$x",
                             "wlan1_wrapper", "uid_wlan0"})
        EXPECT_FALSE(isInterfaceName(text)) << text;
    EXPECT_FALSE(isInterfaceName({"wlan0\0x", 7}));
    for (const char* text : {"0x5A", "0x5a", "90", "0xffffffff", "4294967295"})
        EXPECT_TRUE(parseFwmark(text).has_value()) << text;
    for (const char* text : {"", "0x", "5A", "0x100000000", "4294967296", "-1", "0x5A;", "0x-1"})
        EXPECT_FALSE(parseFwmark(text).has_value()) << text;
    for (const char* text : {"0", "10123", "4294967295"})
        EXPECT_TRUE(parseUid(text).has_value()) << text;
    for (const char* text :
         {"", "-1", "+1", " 1", "1 ", "4294967296", "1;id", "0x1", "10123\r", "010200", "00"})
        EXPECT_FALSE(parseUid(text).has_value()) << text;
}

using Configuration = PrivateWorld;

TEST_F(Configuration, OverridesTheDefaultsLineByLineAndTheLaterLineWins) {
    write("/vendor/etc/sla/lnkd.conf",
          "#min_ratio_change=9\n \t\n  mini_est_interval =\t 250ms  # faster\nports=1,2 #x\n"
          "protocols=http\r\nrtt_server=10.0.0.1=x\nwifi_threshold=-5\nwan_threshold=600\nfoo=1\n"
          "wan_threshold=700\nno equals sign\nalpha_percent=\nt_hyst_s=99999999999\nPorts=3\n"
          "num_interfaces=1\ninterface_0=wlan9,0,wlan9,0x5A,1,0,0,0,x\nuid_whitelist=7\nn_hyst=4");
    Parameters* const p = Parameters::instance();
    EXPECT_EQ(std::tuple(p->get(kMiniEstInterval), p->get(kWifiThreshold), p->get(kWanThreshold)),
              std::tuple(250U, 4294967291U, 700U));
    EXPECT_EQ(std::tuple(p->min_ratio_change, p->alpha_percent, p->t_hyst_s, p->n_hyst),
              std::tuple(2U, 0, INT32_MAX, 4));
    EXPECT_EQ(p->getStatsPorts() + ' ' + p->getStatsProtocols() + ' ' + p->probeTarget().server,
              "ports=1,2 protocols=http\r 10.0.0.1=x");
    EXPECT_EQ(p->uidWhitelist().size(), 1U) << "in force from the start";
    EXPECT_TRUE(p->interfaces()->empty()) << "the property alone names interfaces";
    EXPECT_FALSE(p->setValue("interface_4", ""));
    write("/huge", "ports=9\n" + std::string(2 * 1024 * 1024, '\n'));
    for (const char* path : {"/missing", "/vendor", "/huge"})
        p->readLnkdConfFile(path);
    EXPECT_EQ(p->ports, "1,2") << "a file that cannot be read changes nothing";
}

// Each record's name, table, mark, m(etered) s(lave) d(efault), cost, bias, BSSID.
static std::string textOf(const InterfaceTable& table) {
    std::string text;
    for (const auto& [name, r] : table)
        text += std::string(r->name) + ' ' + r->routeTable + ' ' + r->fwmark + ' ' +
                (r->metered ? "m" : "") + (r->slave ? "s" : "") + (r->isDefault ? "d " : " ") +
                std::to_string(r->cost) + ' ' + std::to_string(r->bias) + ' ' + r->bssid + "; ";
    return text;
}

TEST(InterfaceDescription, IsARecordWhenItsNineFieldsAreValid) {
    const auto parse = Parameters::parseInterfaceParams;
    EXPECT_EQ(textOf({{"", parse("a,2,t,90,0,-7,9x,1,0123456789abcdef")},
                      {"b", parse("b,0,t,0x5A,1,0,0,0,x,")}}),
              "a t 90 ms -7 9 0123456789abcde; b t 0x5A d 0 0 x; ");
    for (const char* text :
         {"a,0,t,90,0,0,0,0,", "a,0,t,90,0,0,0,0,x,y", "a,0,,90,0,0,0,0,x", "a,0,t,,0,0,0,0,x",
          "a;b,0,t,90,0,0,0,0,x", "a,0,$(id),90,0,0,0,0,x", "a,0,t,9 0,0,0,0,0,x"})
        EXPECT_EQ(parse(text), nullptr) << text;
}

using Table = PrivateWorld;

TEST_F(Table, StartsFromTwoBuiltInInterfacesWhenTheListHasAnInvalidName) {
    write("/vendor/build.prop", "vendor.sla.ifaces=wlan1,a b");
    EXPECT_EQ(textOf(*Parameters::instance()->interfaces()),
              "rmnet_data0 rmnet_data0 0x5C md 0 0 ; wlan0 wlan0 0x5A d 0 0 ; ");
}

TEST(TableInUse, FollowsTheControlMessagesAndLeavesSnapshotsAlone) {
    Parameters* const p = Parameters::instance();
    p->UpdateInterface("wlan0,wlan1,rmnet_data0", true);
    p->UpdateInterfaceBssid("aa:bb:cc:dd:ee:ff,");
    const InterfaceSnapshot before = p->interfaces();
    p->UpdateInterface("ccmni0,x;y", true);
    p->UpdateInterfaceBssid(",112233445566,778899001122");
    p->UpdateInterfaceBssid("000000000000,1234567890123");  // too long: nothing changes
    p->UpdateInterfaceMode("0");
    p->UpdateInterfaceMode("1,x");
    p->UpdateInterface("rmnet_data0", false);
    p->UpdateInterface("c,ccmni1,wlan2,d,e,f", true);  // no more than four at once
    EXPECT_EQ(textOf(*p->interfaces()),
              "c c 0x5A  0 0 ffffffffffff; ccmni0 ccmni0 0x5C  0 0 ffffffffffff; ccmni1 ccmni1 "
              "0x5C  0 0 ffffffffffff; d d 0x5A  0 0 ffffffffffff; wlan0 wlan0 0x5A d 0 0 "
              "aabbccddeeff; wlan1 wlan1 0x5B s 0 0 112233445566; wlan2 wlan2 0x5A  0 0 "
              "ffffffffffff; ");
    EXPECT_EQ(textOf(*before),
              "rmnet_data0 rmnet_data0 0x5C m 0 0 ffffffffffff; wlan0 wlan0 0x5A d 0 0 "
              "aabbccddeeff; wlan1 wlan1 0x5B s 0 0 ffffffffffff; ");
}

}  // namespace lnkd
