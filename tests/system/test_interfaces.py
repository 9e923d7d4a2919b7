# SPDX-License-Identifier: Apache-2.0
import itertools
import re

import pytest
import world
from lab.driver import ALL_LINKS, settled, wait_for_shares, wait_until
from lab.links import LINKS
from lab.steering import kernel, steered

BAD_NAMES = ["wlan0;reboot", "$(id)", "`id`", "a|b", "a b", "%s%n", "wlan1\n", "wl\xe4n", " ", "",
             "a/b", "../x", "..", "-F", "x" * 16, "x" * 200, "wlan0_wrapper", "uid_wlan0"]
ALL_BITS = "0xffffffff"


def for_uids(target, *uids):
    return [f"-m owner --uid-owner {uid} -j {target}" for uid in uids]


def mark_chain(mark):
    return [f"-j MARK --set-xmark {mark}/{ALL_BITS}",
            f"-j CONNMARK --save-mark --nfmask {ALL_BITS} --ctmask {ALL_BITS}", "-j ACCEPT"]


def test_interfaces_and_lists_become_exactly_these_rules(phone):
    """Metered links are for the whitelist, the second Wi-Fi for its own, the first for all."""
    phone.start()
    orders = [(2, ALL_LINKS), (1, "10123,10456"), (7, "10200")]
    phone.order(*orders)
    wait_for_shares(wlan0=0.5, wlan1=0.5, rmnet_data0=0)
    rules, done = settled(), world.tool_commands()
    split = "-p tcp -m multiport --dports 80,443,8080 -m state --state NEW -m statistic --mode rand"
    assert all(rule.startswith(split) for rule in rules.pop("zelk_SLA"))
    assert rules == {
        "OUTPUT": ["-j zelk_DVX_wapper"],
        "zelk_DVX_wapper": for_uids("zelk_DVX", 10200, 10123, 10456),
        "zelk_DVX": ["-j zelk_SLS", "-m state --state RELATED,ESTABLISHED -j CONNMARK "
                     f"--restore-mark --nfmask {ALL_BITS} --ctmask {ALL_BITS}", "-j zelk_SLA"],
        "zelk_SLS": [], "zelk_fw_wlan0": mark_chain("0x5a"), "zelk_fw_wlan1": mark_chain("0x5b"),
        "zelk_fw_rmnet_data0": mark_chain("0x5c"),
        "zelk_fw_wlan1_wrapper": for_uids("zelk_fw_wlan1", 10200),
        "zelk_fw_rmnet_data0_wrapper": for_uids("zelk_fw_rmnet_data0", 10123, 10456),
        "POSTROUTING": ["-j zelk_nat_POSTROUTING_DVX"],
        "zelk_nat_POSTROUTING_DVX": [f"-o {link} -j MASQUERADE" for link in LINKS],
        "policy": ["fwmark 0x5a lookup wlan0", "fwmark 0x5b lookup wlan1",
                   "fwmark 0x5c lookup rmnet_data0"]}
    phone.order(*orders)
    assert world.tool_commands() == done  # said again is not done again


def test_a_list_of_interfaces_replaces_the_previous_one(phone):
    """What is no longer named goes, what is new comes, and the rest stays."""
    phone.start()
    for names in ("wlan0", "wlan0,rmnet_data0", "rmnet_data0", "wlan1,wlan0", ALL_LINKS, ""):
        phone.order((2, names))
        assert steered() == sorted(filter(None, names.split(",")))


def test_links_of_one_mark_leave_each_other_their_way(phone):
    """The kernel deletes a policy rule by its mark; in whatever order they go, the others stay."""
    cellular = ["ccmni0", "rmnet_data0", "rmnet_data1"]
    with open("/etc/iproute2/rt_tables", "a", encoding="ascii") as tables:
        tables.write("1011 ccmni0\n1012 rmnet_data1\n1013 eth0\n")
    phone.start()
    for order in itertools.permutations(cellular):
        left = [*order, "wlan0", "eth0"]
        while left:
            phone.order((2, ",".join(left)))
            assert steered() == sorted(left)
            left.pop(0)
    phone.order((2, ",".join([*cellular, "wlan0", "eth0"])))


def test_a_list_counts_a_name_once_and_the_table_holds_sixteen(phone):
    """What is beyond is refused by name, and nothing is begun anew for it."""
    names = [f"rmnet_data{n}" for n in range(40)]
    phone.start()
    phone.order((2, ",".join([*names, *names])))
    refused = [line.split()[-1] for line in phone.daemon.log if "interfaces, refused" in line]
    assert refused == names[16:]
    assert world.statistics_commands().count("enable=0") == 16
    phone.order((2, "rmnet_data39"))
    rules = kernel()
    assert "zelk_fw_rmnet_data39" in rules and "zelk_fw_rmnet_data0" not in rules


def test_an_invalid_name_reaches_neither_a_command_nor_the_module(phone):
    """The good name of the same list is obeyed all the same."""
    phone.start()
    for name in BAD_NAMES:
        phone.order((2, f"{name},wlan0"))
        assert steered() == ["wlan0"]
    commands = world.tool_commands()
    assert [command for command in commands if not re.fullmatch(r"[\w ,.-]+", command)] == []
    assert set(re.findall(r"(?:zelk_fw_|zelk_sls_|table |-o )(.*?)(?:_wrapper)?(?: |$)",
                          "\n".join(commands), re.MULTILINE)) == {"wlan0"}
    assert {line for line in world.statistics_commands() if "iface" in line} == {"iface=wlan0"}


@pytest.mark.parametrize("names, told", [
    ("wlan0,wlan1,rmnet_data0,usb0,usb1", ["rmnet_data0", "usb0", "wlan0", "wlan1"]),
    (f"wlan1,wlan0,{'x' * 52}", ["wlan0", "wlan1"]),
    ("wlan1,$(reboot)", ["rmnet_data0", "wlan0"]), ("", []),
], ids=["five", "too-long-a-value", "shell", "none"])
def test_the_property_names_the_interfaces_at_start(phone, names, told):
    """Four at most, whole names only, and the built-in pair when one of them is not usable."""
    world.set_prop("vendor.sla.ifaces", names)
    phone.start()
    wait_until(lambda: "enable=1" in world.statistics_commands(), "start-up")
    assert [line[6:] for line in world.statistics_commands() if line[:6] == "iface="] == told


def test_uid_lists_become_entry_filter_and_wrapper_chains(phone):
    """An entry that is too long or no number is skipped and the rest of its list is kept."""
    phone.start()
    phone.order((2, ALL_LINKS))
    for message, whitelist, double_wlan in (
        ((1, "10123,10456"), [10123, 10456], []),
        ((7, "10200,10123"), [10123, 10456], [10200, 10123]),
        ((1, "NULL"), [], [10200, 10123]),
        ((7, "123456,-1,+2, 3,4;id,0x5,,0777,99999"), [], [99999]),
        ((1, "10456," + "1," * 40 + "2"), [10456, *[1] * 40, 2], [99999]),
        ((1, ""), [], [99999]),
    ):
        phone.order(message)
        rules = kernel()
        assert rules == rules | {
            "zelk_DVX_wapper": for_uids("zelk_DVX", *double_wlan, *whitelist),
            "zelk_fw_rmnet_data0_wrapper": for_uids("zelk_fw_rmnet_data0", *whitelist),
            "zelk_fw_wlan1_wrapper": for_uids("zelk_fw_wlan1", *double_wlan)}


def test_the_metered_mode_decides_whether_cellular_links_share(phone):
    """A mode that is no number changes nothing, now or for links to come; nor does a BSSID."""
    phone.start()
    for mode, metered in (("1", True), ("0", False), ("x", False), ("", False), ("1", True),
                          ("x", True), ("0,wlan0,0x5A,1,0,0,0,f", True), ("0;id", True),
                          ("-0", True), ("00", False)):
        phone.order((2, "wlan0"), (18, mode), (9, f"aa:bb:cc:dd:ee:ff,{mode},{'a' * 200}"),
                    (2, "wlan0,rmnet_data0"))
        wait_for_shares(**{"wlan0": 1, "rmnet_data0": 0} if metered else
                        {"rmnet_data0": 0.5, "wlan0": 0.5})
