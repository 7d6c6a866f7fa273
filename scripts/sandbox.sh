# The network namespace sandbox of scripts/demo.sh and the package tests;
# sourced, not run. Two namespaces joined by a veth pair:
#   server namespace: one veth end with $SANDBOX_NET.1/24
#   client namespace: the other end, where busybox udhcpc asks for an address
#                     with a hook of our own (no /etc/resolv.conf, no host name)
# Names carry the PID of the shell, so runs side by side never meet. Nothing
# touches the machine's own interfaces. Needs root.

# sandbox_create NET TAG FOLDER: NET is the first three octets (10.213.0), TAG
# a short word for the names (at most 5 letters: link names have 15
# characters at most), FOLDER where the client's hook and its findings go.
sandbox_create() {
  SANDBOX_NET=$1
  SANDBOX_SERVER_NS=$2-srv-$$
  SANDBOX_CLIENT_NS=$2-cli-$$
  SANDBOX_SERVER_LINK=$2s$$
  SANDBOX_CLIENT_LINK=$2c$$
  SANDBOX_FOLDER=$3
  ip netns add "$SANDBOX_SERVER_NS"
  ip netns add "$SANDBOX_CLIENT_NS"
  ip link add "$SANDBOX_SERVER_LINK" type veth peer name "$SANDBOX_CLIENT_LINK"
  ip link set "$SANDBOX_SERVER_LINK" netns "$SANDBOX_SERVER_NS"
  ip link set "$SANDBOX_CLIENT_LINK" netns "$SANDBOX_CLIENT_NS"
  ip -n "$SANDBOX_SERVER_NS" link set lo up
  ip -n "$SANDBOX_CLIENT_NS" link set lo up
  ip -n "$SANDBOX_SERVER_NS" address add "$SANDBOX_NET.1/24" dev "$SANDBOX_SERVER_LINK"
  ip -n "$SANDBOX_SERVER_NS" link set "$SANDBOX_SERVER_LINK" up
  ip -n "$SANDBOX_CLIENT_NS" link set "$SANDBOX_CLIENT_LINK" up
}

# Removing the namespaces removes the veth pair with them.
sandbox_remove() {
  [ -n "${SANDBOX_CLIENT_NS:-}" ] && ip netns del "$SANDBOX_CLIENT_NS" 2>/dev/null
  [ -n "${SANDBOX_SERVER_NS:-}" ] && ip netns del "$SANDBOX_SERVER_NS" 2>/dev/null
  return 0
}

# sandbox_settings FILE: a settings file with a pool in the sandbox's subnet
# and the log switched on, with CR LF line ends as the program writes them.
sandbox_settings() {
  printf '%s\r\n' \
    "PoolStartAddress $SANDBOX_NET.100" \
    "PoolEndAddress $SANDBOX_NET.150" \
    "SubnetMask 255.255.255.0" \
    "DefaultGateway $SANDBOX_NET.1" \
    "DNSAddress1 $SANDBOX_NET.1" \
    "LeaseDuration 600" \
    "PreferredListeningAddress $SANDBOX_NET.1" \
    "LoggingEnabled True" \
    "LogFilePath \"log.txt\"" > "$1"
}

# Waits up to 5 s for a socket on UDP port 67 in the server namespace.
sandbox_wait_for_server() {
  local _
  for _ in $(seq 1 50); do
    ip netns exec "$SANDBOX_SERVER_NS" ss -Huln 'sport = :67' | grep -q . && return 0
    sleep 0.1
  done
  return 1
}

# busybox udhcpc in the client namespace; its hook puts the address on the
# client's link and writes what it got to $SANDBOX_FOLDER/client-lease.txt.
sandbox_run_client() {
  cat > "$SANDBOX_FOLDER/udhcpc-hook.sh" <<HOOK
#!/bin/sh
case "\$1" in
  bound|renew)
    ip address add "\$ip/\${mask:-24}" dev "\$interface"
    {
      echo "address:    \$ip/\${mask}"
      echo "router:     \${router:-none}"
      echo "dns:        \${dns:-none}"
      echo "lease:      \${lease}s"
      echo "server id:  \${serverid}"
    } > "$SANDBOX_FOLDER/client-lease.txt"
    ;;
esac
exit 0
HOOK
  chmod +x "$SANDBOX_FOLDER/udhcpc-hook.sh"
  ip netns exec "$SANDBOX_CLIENT_NS" busybox udhcpc -i "$SANDBOX_CLIENT_LINK" -f -q -n -t 5 -T 2 \
    -s "$SANDBOX_FOLDER/udhcpc-hook.sh" -x hostname:quorvy-sandbox
}
