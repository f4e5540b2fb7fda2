#!/usr/bin/env bash
# Installs what the build, the tests, the demo and the benchmarks need, when missing.
# Usage: scripts/deps.sh build|test|bench
# As root it runs apt-get; otherwise it names the missing packages and stops.
set -euo pipefail
mode=${1:-build}

# Debian packages by purpose. Later subsystems add theirs here.
build_pkgs=(cmake ninja-build g++ make pkg-config libjpeg-dev libpng-dev libtiff-dev)
build_pkgs+=(libopenexr-dev)
build_pkgs+=(libopencv-dev)
test_pkgs=(libgtest-dev clang libclang-rt-dev python3 python3-numpy python3-opencv pfstools
           libimage-exiftool-perl libtiff-tools)
test_pkgs+=(python3-tifffile python3-psd-tools python3-pil icc-profiles-free imagemagick openexr)
test_pkgs+=(python3-pytest)
bench_pkgs=(python3-opencv pfstools pfstmo time enfuse)

want=("${build_pkgs[@]}")
case "$mode" in
  build) ;;
  test) want+=("${test_pkgs[@]}") ;;
  bench) want+=("${bench_pkgs[@]}") ;;
  *) echo "usage: $0 build|test|bench" >&2; exit 2 ;;
esac

# The headless browser for the report page's test is wanted, not required: where it can't
# be installed that test says so and skips.
browser_pkgs=(chromium chromium-driver)
if [ "$mode" = test ] && ! command -v chromium >/dev/null; then
  if [ "$(id -u)" -eq 0 ] && command -v apt-get >/dev/null; then
    export DEBIAN_FRONTEND=noninteractive
    apt_browser() { apt-get install -y -qq --no-install-recommends "${browser_pkgs[@]}" >/dev/null 2>&1; }
    apt_browser || { apt-get update -qq >/dev/null 2>&1; apt_browser; } ||
      echo "could not install ${browser_pkgs[*]}: the report page's browser test will be skipped" >&2
  else
    echo "${browser_pkgs[*]} missing: the report page's browser test will be skipped" >&2
  fi
fi

missing=()
for p in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ] && command -v apt-get >/dev/null; then
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq || true
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
else
  echo "missing packages: ${missing[*]}" >&2
  echo "install them with: sudo apt-get install ${missing[*]}" >&2
  exit 1
fi
