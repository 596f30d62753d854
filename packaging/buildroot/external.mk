include $(sort $(wildcard $(BR2_EXTERNAL_VESK_PATH)/package/*/*.mk))
