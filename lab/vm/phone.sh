# SPDX-License-Identifier: Apache-2.0
# Makes a phone of a freshly booted machine: a Wi-Fi link to a simulated access point and a cellular
# link, both to the namespace "internet", with the lab's addresses and servers; then takes commands.
lab=${0%/*}/..
internet() { ip netns exec internet "$@"; }
mkdir -p /tmp /run/lab /run/world /vendor/etc/sla /system/bin /dev/socket
mount -t debugfs debugfs /sys/kernel/debug
mkdir /dev/pts
mount -t devpts devpts /dev/pts
ln -s /busybox /modprobe
echo /modprobe > /proc/sys/kernel/modprobe
for tool in iptables ip; do
    printf '#!/busybox sh\nexec /usr/sbin/%s "$@"\n' $tool > /system/bin/$tool-wrapper-1.0
done
chmod +x /system/bin/*
{ cat /etc/iproute2/rt_tables; echo 1001 wlan0; echo 1003 rmnet_data0; } > /run/world/rt_tables
mount --bind /run/world/rt_tables /etc/iproute2/rt_tables

ip netns add internet
/modprobe fuse
/modprobe mac80211_hwsim radios=2
iw phy phy1 set netns name internet
ip link add rmnet_data0 type veth peer net3 netns internet
internet ip link set wlan1 name net1
printf '%s\n' interface=net1 driver=nl80211 ssid=lab hw_mode=g channel=1 \
    ctrl_interface=/run/hostapd > /run/hostapd.conf
internet hostapd -B /run/hostapd.conf
internet iw dev net1 set txpower fixed 0  # or the level that the test sets does not count
for address in 8.8.8.8 203.0.113.10; do internet ip addr add $address/32 dev lo; done
internet ip link set lo up
n=1
for link in wlan0 rmnet_data0; do
    ip link set $link up
    internet ip link set net$n up
    # A link that answers within a millisecond is not rated.
    internet tc qdisc add dev net$n root netem delay 10ms
    internet ip addr add 10.10.$n.1/24 dev net$n
    ip addr add 10.10.$n.2/24 dev $link
    ip route add default via 10.10.$n.1 dev $link table $link
    ip rule add oif $link lookup $link pref 17000
    n=3
done
ip route add default via 10.10.1.1 dev wlan0
ip link set lo up
for f in /proc/sys/net/ipv4/conf/*/rp_filter; do echo 0 > $f; done
internet "$lab/responder.py" /run/lab/responder.log 8.8.8.8:443 203.0.113.10:80 203.0.113.10:7000 &
printf '%s\n' 'network={' 'ssid="lab"' key_mgmt=NONE scan_freq=2412 '}' > /run/wpa.conf
wpa_supplicant -B -i wlan0 -D nl80211 -c /run/wpa.conf
until iw dev wlan0 station dump | grep -q "authorized:.*yes"; do sleep 0.1; done

exec < /dev/ttyS0 > /dev/ttyS0
stty raw -echo
echo "$MARK 0"
exec /bin/sh
