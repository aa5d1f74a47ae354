# SPDX-License-Identifier: MIT
include $(BR2_EXTERNAL_NASUTIL_PATH)/package/nasutil/nasutil.mk
