# SPDX-License-Identifier: Apache-2.0
# A connection on Wi-Fi has a second subflow on cellular that is used when the first one is stale.
ip rule add from 10.10.1.2 lookup wlan0 pref 1000
ip rule add from 10.10.3.2 lookup rmnet_data0 pref 1000
ip mptcp limits set subflows 1 add_addr_accepted 0
ip mptcp endpoint add 10.10.3.2 dev rmnet_data0 subflow backup
nsenter --net=/run/netns/internet ip mptcp limits set subflows 1 add_addr_accepted 0
