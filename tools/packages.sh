# Installs Debian packages that are missing. Read by the commands in the top folder.
#
# need_packages NAME... : makes sure that all are installed, as root or by sudo; ends the command with
# a sentence that tells what to do when that is not possible.

need_packages() {
  local package missing=()
  for package in "$@"; do
    case $(dpkg-query -W -f='${Status}' "$package" 2>/dev/null) in
      "install ok installed") ;;
      *) missing+=("$package") ;;
    esac
  done
  [ ${#missing[@]} -eq 0 ] && return
  echo "Installing: ${missing[*]}"
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null ||
      fail "These packages are missing: ${missing[*]}. Install them as root, then run this again."
    as_root=(sudo)
  fi
  local log
  log=$(mktemp)
  if ! { "${as_root[@]}" apt-get update && "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
    tail -n 20 "$log"
    rm -f "$log"
    fail "The packages above could not be installed. See the lines before this one."
  fi
  rm -f "$log"
}

fail() {
  echo "$0: $*" >&2
  exit 1
}

# What the service is built with and what it uses.
BUILD_PACKAGES=(cmake g++ libboost1.81-dev libidn2-dev libjsoncpp-dev libminizip-dev
  libssl-dev ninja-build pkg-config zlib1g-dev)
# What its tests need beside that.
TEST_PACKAGES=(avahi-daemon avahi-utils binutils chromium clang clang-format clang-tidy curl dbus firefox-esr iproute2
  libgtest-dev libnss3-tools openssl python3 python3-jsonschema python3-websockets python3-zeroconf
  tshark webkit2gtk-driver xvfb zip)
# What tools/macos_check needs beside that, and npm.
MACOS_PACKAGES=(lld-14)
# Node from elsewhere brings npm and conflicts with Debian's.
command -v npm >/dev/null || TEST_PACKAGES+=(nodejs npm)
BENCH_PACKAGES=(avahi-daemon avahi-utils dbus iproute2 libbenchmark-dev python3 python3-websockets)
