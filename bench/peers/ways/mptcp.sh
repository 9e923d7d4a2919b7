# SPDX-License-Identifier: Apache-2.0
# Each connection has a subflow on each link. One by an address other than the default link's has to
# leave by its own link, so each has a table and a rule for what comes from there.
for link in wlan0:10.10.1.2 wlan1:10.10.2.2 rmnet_data0:10.10.3.2; do
    ip rule add from ${link#*:} lookup ${link%:*} pref 1000
done
ip mptcp limits set subflows 2 add_addr_accepted 0
ip mptcp endpoint add 10.10.2.2 dev wlan1 subflow
ip mptcp endpoint add 10.10.3.2 dev rmnet_data0 subflow
nsenter --net=/run/netns/internet ip mptcp limits set subflows 2 add_addr_accepted 0
