#!/usr/bin/env bash
# Installs what is missing, builds into build/ and starts the desktop program
# as the user, with the one privilege it needs (cap_net_bind_service on
# build/src/gui/quorvy). Where there is no display (neither DISPLAY nor
# WAYLAND_DISPLAY is set) it shows the program serving a real client inside
# the network namespace sandbox instead (scripts/demo.sh) and ends with 0.
#
#   started by        with a display                      without one
#   a normal user     sudo only for missing packages and  build as the user,
#                     the capability; build and window    sandbox through sudo
#                     as the user
#   sudo              packages as root; build, capability build as the user,
#                     and window as the calling user,     sandbox as root
#                     with their session
#   root              packages, build, window as root     packages, build, sandbox
#
# It never starts a DHCP server on the machine's network by itself: the window
# serves only once its start button is pressed (or -s is passed on). The
# window starts in the user's home folder, so its settings and log go to
# ~/.local/share/Tarnvel/DHCP Server, as when the application menu starts it.
# Arguments are passed on to the program. TARNVEL_BUILD_DIR names another build folder.
set -euo pipefail
cd "$(dirname "$0")/.."
# getcap and setcap live in /usr/sbin, outside a normal user's PATH on Debian.
PATH=$PATH:/usr/sbin:/sbin
build=${TARNVEL_BUILD_DIR:-build}
program=$(realpath -m "$build/src/gui/quorvy")

has_display() { [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; }
is_root() { [ "$(id -u)" -eq 0 ]; }
# The user who called sudo, when this runs as root for one that is not root.
caller() { is_root && [ -n "${SUDO_USER:-}" ] && [ "$SUDO_USER" != root ] && echo "$SUDO_USER"; }

need_sudo() {
  command -v sudo >/dev/null && return 0
  echo "run.sh: $1 needs root, and sudo is not installed; run it as root: su -c 'bash scripts/run.sh'" >&2
  exit 1
}

install_packages() {
  if is_root; then
    bash scripts/install-deps.sh
  elif ! bash scripts/install-deps.sh --check >/dev/null; then
    need_sudo "installing the missing packages"
    sudo bash scripts/install-deps.sh
  fi
}

# As the calling user under sudo, so that build/ stays theirs; as root when
# the checkout is not theirs (then they could not build in it anyway).
build_program() {
  local user
  user=$(caller) || true
  if [ -n "$user" ] && [ "$(stat -c %U .)" = "$user" ]; then
    # build/ of an earlier run as root goes back to the owner of the checkout.
    if [ -d "$build" ] && [ "$(stat -c %U "$build")" != "$user" ]; then
      chown -R "$user": "$build"
    fi
    runuser -u "$user" -- bash scripts/build.sh "$build"
    return
  fi
  if [ -e "$build" ] && [ ! -w "$build" ]; then
    echo "run.sh: $build belongs to $(stat -c %U "$build") (an earlier run as root?);" \
         "give it back with: sudo chown -R $(id -un): $build" >&2
    exit 1
  fi
  bash scripts/build.sh "$build"
}

show_sandbox() {
  echo "There is no desktop here (neither DISPLAY nor WAYLAND_DISPLAY is set), so instead of" \
       "the window you see the program serve a DHCP client inside network namespaces."
  if is_root; then
    bash scripts/demo.sh "$build"
  else
    need_sudo "the namespace sandbox"
    sudo bash scripts/demo.sh "$build"
  fi
}

# Relinking drops the capability, so it is looked at after every build.
grant_capability() {
  getcap "$program" 2>/dev/null | grep -q cap_net_bind_service && return 0
  if is_root; then
    setcap cap_net_bind_service=+ep "$program"
  else
    need_sudo "granting cap_net_bind_service to $program"
    sudo setcap cap_net_bind_service=+ep "$program"
  fi
}

# The window as the user who called sudo, in their graphical session: the
# display (sudo keeps DISPLAY and XAUTHORITY), their runtime folder and their
# session bus, which the tray icon needs.
start_window_as() {
  local user=$1 uid home runtime
  shift
  uid=$(id -u "$user")
  home=$(getent passwd "$user" | cut -d: -f6)
  runtime=/run/user/$uid
  local session=() name
  for name in DISPLAY WAYLAND_DISPLAY XAUTHORITY; do
    [ -n "${!name:-}" ] && session+=("$name=${!name}")
  done
  if [ -d "$runtime" ]; then
    session+=(XDG_RUNTIME_DIR="$runtime")
    [ -S "$runtime/bus" ] && session+=(DBUS_SESSION_BUS_ADDRESS="unix:path=$runtime/bus")
  fi
  cd "$home"
  exec runuser -u "$user" -- env "${session[@]}" "$program" "$@"
}

install_packages
build_program
if ! has_display; then
  show_sandbox
  exit 0
fi
user=$(caller) || true
if [ -n "$user" ]; then
  grant_capability
  start_window_as "$user" "$@"
fi
is_root || grant_capability
cd ~
exec "$program" "$@"
