# SPDX-License-Identifier: Apache-2.0
# The same with the links' true rates as weights, which somebody has to know.
echo 1 >/proc/sys/net/ipv4/fib_multipath_hash_policy
ip route replace default \
    nexthop via 10.10.1.1 dev wlan0 weight 20 \
    nexthop via 10.10.2.1 dev wlan1 weight 8 \
    nexthop via 10.10.3.1 dev rmnet_data0 weight 12
for link in wlan0 wlan1 rmnet_data0; do
    iptables -t nat -A POSTROUTING -o $link -j MASQUERADE
done
