################################################################################
#
# vesk-h264
#
################################################################################

VESK_H264_VERSION = 1.0.0
# The sources are those that this directory is in.
VESK_H264_SITE = $(BR2_EXTERNAL_VESK_PATH)/../..
VESK_H264_SITE_METHOD = local
VESK_H264_LICENSE = MIT
VESK_H264_LICENSE_FILES = LICENSE

# Its own build directories are not part of the sources.
VESK_H264_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude=/build

# The warnings of another compiler do not end the build.
VESK_H264_CONF_OPTS = \
	-DVESK_HARDENED=ON \
	-DVESK_TESTS=OFF \
	-DVESK_TOOLS=OFF \
	-DVESK_WERROR=OFF

ifeq ($(BR2_STATIC_LIBS),y)
VESK_H264_CONF_OPTS += -DVESK_STATIC=ON
endif

ifeq ($(BR2_INIT_SYSTEMD),y)
VESK_H264_CONF_OPTS += -DVESK_INIT=systemd -DVESK_UNITS=/usr/lib/systemd/system
else ifeq ($(BR2_INIT_BUSYBOX)$(BR2_INIT_SYSV),y)
VESK_H264_CONF_OPTS += -DVESK_INIT=busybox
else
VESK_H264_CONF_OPTS += -DVESK_INIT=none
endif

# The documents stay off the board.
define VESK_H264_INSTALL_TARGET_CMDS
	DESTDIR=$(TARGET_DIR) $(BR2_CMAKE) --install $(VESK_H264_BUILDDIR) \
		--component daemon
endef

$(eval $(cmake-package))
