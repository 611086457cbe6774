#!/bin/sh
# Run by scripts/try-packages inside an empty root, with the packages in /packages. Each "try:" line says what has worked.
set -e
cd /packages
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 QT_QPA_PLATFORM=offscreen QTWEBENGINE_DISABLE_SANDBOX=1
install() { apt-get install -y --no-install-recommends "$@"; }
fail() { echo "try: FAILED: $1"; exit 1; }

# The core alone brings neither widgets nor a web engine.
apt-get update
install ./libkestrixkit-core0_*.deb
! dpkg -l | grep -i 'qt6widgets\|webengine' || fail "the core brings widgets or a web engine"
echo "try: the core is installed, $(dpkg -l | grep -c '^ii') packages in all"

# A host of the development package, which brings no web engine either.
install ./libkestrixkit-core0_*.deb ./libkestrixkit-catalogue0_*.deb ./libkestrixkit-audio0_*.deb ./libkestrixkit-ui0_*.deb \
    ./libkestrixkit-dev_*.deb ./libkestrixkit-doc_*.deb build-essential cmake ninja-build pkg-config
! dpkg -l | grep -i 'webengine' || fail "the development package brings a web engine"
cp -r /usr/share/doc/libkestrixkit-dev/examples/host host
cmake -G Ninja -S host -B host/build
cmake --build host/build
g++ $(pkg-config --cflags kestrixkit-ui) -fPIC -x c++ host/main.cpp -o host/by-pkg-config $(pkg-config --libs kestrixkit-ui) -I/usr/include/x86_64-linux-gnu/qt6/QtWidgets -I/usr/include/x86_64-linux-gnu/qt6/QtGui
echo "try: the host is built by CMake and by pkg-config"
i=0
while [ $i -lt 500 ]; do echo "Track $i;Artist;$((100 + i % 50));/none/$i.wav"; i=$((i + 1)); done >tracks.csv
timeout 10 host/build/host host.db tracks.csv || [ $? -eq 124 ] || fail "the host ended by itself"

install ./kxtool_*.deb
kxtool verify host.db
found=$(kxtool query host.db Track 'bpm >= 125' --json | grep -o '"title"' | wc -l)
[ "$found" -eq 250 ] || fail "the host's store has $found tracks of 125 and more, not 250"
echo "try: the host has imported, kxtool counts $found tracks in its store"

# The libraries that check stand in for the others.
if ls libkestrixkit-checks_*.deb >/dev/null 2>&1; then
    install ./libkestrixkit-checks_*.deb
    checks=$(dirname "$(dpkg -L libkestrixkit-checks | grep '/libkestrixkit-core.so')")
    LD_LIBRARY_PATH=$checks ldd host/build/host | grep -q "$checks/libkestrixkit-ui" || fail "the checking libraries are not found"
    LD_LIBRARY_PATH=$checks timeout 10 host/build/host checked.db tracks.csv || [ $? -eq 124 ] || fail "the host failed a check"
    echo "try: the host runs with the libraries that check"
fi

install ./*.deb
kestrixkit-browser --report >report.json
grep -q '"tracks": [1-9]' report.json || { cat report.json; fail "the browser's report has no tracks"; }
kestrixkit-browser --screenshot browser.png 2>messages
[ -s browser.png ] || fail "the browser has drawn nothing"
kestrixkit-gallery gallery 2>>messages
! grep 'Cannot read the image' messages || fail "what reads the icons is not installed"
echo "try: the browser has drawn its window, the gallery $(ls gallery | wc -l) pictures"
