# SPDX-License-Identifier: Apache-2.0
# What a monitor needs that moves the default route: packets leave by a link with its own address,
# and a connection that was tied to the other link's is forgotten, so that it can begin anew.
for link in wlan0 rmnet_data0; do
    iptables -t nat -A POSTROUTING -o $link -j MASQUERADE
done
