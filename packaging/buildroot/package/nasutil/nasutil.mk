# SPDX-License-Identifier: MIT
################################################################################
#
# nasutil
#
################################################################################

NASUTIL_VERSION = 1.0.0
NASUTIL_SITE = $(call qstrip,$(BR2_PACKAGE_NASUTIL_SITE))
NASUTIL_LICENSE = MIT
NASUTIL_LICENSE_FILES = LICENSE
NASUTIL_INSTALL_STAGING = YES
NASUTIL_SUPPORTS_IN_SOURCE_BUILD = NO
NASUTIL_DEPENDENCIES = openssl tinyxml
NASUTIL_CONF_OPTS = \
	-DBUILD_TESTING=OFF \
	-DCMAKE_SKIP_INSTALL_RPATH=ON \
	-DNASUTIL_MD5_KEY=$(BR2_PACKAGE_NASUTIL_MD5_KEY) \
	-DNASUTIL_BUILD_TOOLS=$(if $(BR2_PACKAGE_NASUTIL_TOOLS),ON,OFF) \
	-DNASUTIL_BUILD_EXAMPLES=$(if $(BR2_PACKAGE_NASUTIL_APPLIANCE),ON,OFF)

ifeq ($(BR2_PACKAGE_NASUTIL_APPLIANCE),y)
define NASUTIL_INSTALL_APPLIANCE
	DESTDIR=$(TARGET_DIR) $(BR2_CMAKE) --install $(NASUTIL_BUILDDIR) --component appliance
endef
NASUTIL_POST_INSTALL_TARGET_HOOKS += NASUTIL_INSTALL_APPLIANCE

define NASUTIL_INSTALL_INIT_SYSV
	ln -sf nasd $(TARGET_DIR)/etc/init.d/S60nasd
endef

# The web server's user may read the state.
define NASUTIL_USERS
	nasd -1 nasd -1 * - - - Appliance daemon
	www-data -1 www-data -1 * - - nasd Web server
endef
endif

$(eval $(cmake-package))
