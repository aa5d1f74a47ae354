# SPDX-License-Identifier: MIT
mkdir try
build/mydaemon --in try &
until build/mydaemon --in try status 2>/dev/null; do sleep 0.1; done
build/mydaemon --in try greet Good morning
nas-plist show try/settings.plist
kill $!
wait $!
echo "it ended with status $?"
grep INFO try/mydaemon.log
