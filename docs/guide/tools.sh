# SPDX-License-Identifier: MIT
set -eu
settings=settings.plist

# The first time there is no list yet.
[ -e $settings ] || nas-plist new $settings

# A new document is checked before it takes the place of the old one.
cat >new.xml <<END
<nas_conf_db>
  <version>3</version>
  <system><hostname>nas</hostname></system>
  <shares><share><sharename>music</sharename><sharetype>public</sharetype></share></shares>
</nas_conf_db>
END
nas-conf check --strict new.xml && mv new.xml nas_conf_db.xml
echo "the first share is $(nas-conf get nas_conf_db.xml 'shares[0]/name')"

# Several values are one save: all of them or none.
nas-plist set $settings \
  hostname string "$(nas-conf get nas_conf_db.xml system/hostname)" \
  network/mtu integer 1500 \
  network/servers array \
  network/servers[0]/name string ntp1.example.org \
  network/servers[1]/name string ntp2.example.org

# What is missing has a default.
language=$(nas-plist get $settings language) || language=en
echo "$(nas-plist get $settings hostname) speaks $language"

# Each element of an array.
i=0
while server=$(nas-plist get $settings "network/servers[$i]/name"); do
  echo "server $i is $server"
  i=$((i + 1))
done

# A change, what it did, and back again.
nas-plist set $settings network/mtu integer 9000
nas-plist diff $settings~ $settings || true
nas-plist restore $settings
echo "mtu $(nas-plist get $settings network/mtu)"

# Another program changes the list as JSON.
nas-plist json $settings | sed 's/example\.org/example.net/' | nas-plist import $settings
nas-plist delete $settings 'network/servers[0]'
nas-plist check $settings

# A configuration document takes the old one's place only if nothing in it is wrong or ignored.
cat > new.xml <<END
<nas_conf_db><version>3</version><system><hostname>attic</hostname></system></nas_conf_db>
END
nas-conf check --strict new.xml
mv new.xml nas_conf_db.xml
nas-plist set $settings hostname string "$(nas-conf get nas_conf_db.xml system/hostname)"
nas-plist show $settings

# The last warning that a service has logged.
cat > service.log <<END
2026-11-20T12:37:11 void sample()
WARNING: load 9.5
2026-11-20T12:37:12 void sample()
INFO: load 0.5
END
nas-log -1 -n 1 --category warning service.log
