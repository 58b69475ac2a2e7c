# Installs packages that are missing, with Debian's apt or with Homebrew on macOS. Read by the commands
# in the top folder.
#
# need_packages NAME... : makes sure that all are installed, as root or by sudo; ends the command with
# a sentence that tells what to do when that is not possible. The names are those of the lists below.

need_packages() {
  local package missing=() log
  for package in "$@"; do
    is_installed "$package" || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  echo "Installing: ${missing[*]}"
  log=$(mktemp)
  if ! install_packages "${missing[@]}" >"$log" 2>&1; then
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

if command -v dpkg-query >/dev/null; then
  is_installed() {
    [ "$(dpkg-query -W -f='${Status}' "$1" 2>/dev/null)" = "install ok installed" ]
  }

  install_packages() {
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
      command -v sudo >/dev/null || {
        echo "Install them as root, then run this again."
        return 1
      }
      as_root=(sudo)
    fi
    "${as_root[@]}" apt-get update && "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get install -y --no-install-recommends "$@"
  }

  # What the service is built with and what it uses.
  BUILD_PACKAGES=(cmake g++ libboost1.81-dev libidn2-dev libjsoncpp-dev libminizip-dev
    libssl-dev ninja-build pkg-config zlib1g-dev)
  # What its tests need beside that.
  TEST_PACKAGES=(avahi-daemon avahi-utils binutils chromium clang clang-format clang-tidy curl dbus
    firefox-esr iproute2 libgtest-dev libnss3-tools openssl python3 python3-jsonschema
    python3-websockets python3-zeroconf tshark webkit2gtk-driver xvfb zip)
  # Node from elsewhere brings npm and conflicts with Debian's.
  command -v npm >/dev/null || TEST_PACKAGES+=(nodejs npm)
  # What tools/macos_check needs beside that, and npm.
  MACOS_PACKAGES=(lld-14)
  BENCH_PACKAGES=(avahi-daemon avahi-utils dbus iproute2 libbenchmark-dev python3 python3-websockets)
elif command -v brew >/dev/null; then
  is_installed() { brew list --versions "$1" >/dev/null 2>&1; }
  install_packages() { brew install "$@"; }

  # The system has the compiler, zlib and curl. The other programs that tests of the network ask are
  # of Linux: those tests are skipped. Python's websockets are no package of it.
  BUILD_PACKAGES=(boost cmake jsoncpp libidn2 minizip ninja openssl@3 pkgconf)
  TEST_PACKAGES=(googletest python@3)
  BENCH_PACKAGES=(google-benchmark python@3)
  # It stands beside the system's own, and nobody finds it there.
  OPENSSL_ROOT_DIR=$(brew --prefix openssl@3)
  export OPENSSL_ROOT_DIR
else
  fail "This command needs Debian, or macOS with Homebrew. README.md tells how to build elsewhere."
fi
