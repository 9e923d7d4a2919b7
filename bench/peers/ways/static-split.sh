# SPDX-License-Identifier: Apache-2.0
# What a router with several uplinks does: each new connection draws a link, with the true rates as
# odds, and keeps it by its mark. Each link has a table, and a rule for its mark.
iptables -t mangle -N split
iptables -t mangle -A OUTPUT -p tcp --dport 80 -j split
iptables -t mangle -A split -j CONNMARK --restore-mark
iptables -t mangle -A split -m mark ! --mark 0 -j RETURN
random="iptables -t mangle -A split -m mark --mark 0 -m statistic --mode random --probability"
$random 0.5 -j MARK --set-mark 1
$random 0.4 -j MARK --set-mark 2
iptables -t mangle -A split -m mark --mark 0 -j MARK --set-mark 3
iptables -t mangle -A split -j CONNMARK --save-mark
mark=0
for link in wlan0 wlan1 rmnet_data0; do
    mark=$((mark + 1))
    ip rule add fwmark $mark lookup $link pref 1000
    iptables -t nat -A POSTROUTING -o $link -j MASQUERADE
done
