#pragma once

// Commands 0xF0 to 0xF3: settings of more than four bytes, written and read as a checksummed block
// or as a bracketed text of items key=value. Each command is a handler of the dispatch table: it
// reads what follows the command on the channel, and answers. Main loop only.
//
// In this model the only block is the network record, and the hooks behind the keys of a text do
// nothing.

#include "command/text.h"

#include <cstdint>

// Work area of all four commands; one more byte for a block's checksum or a text's closing zero.
inline constexpr uint32_t kBufferSize = 4096;
extern uint8_t buffer[kBufferSize + 1];

void writeDataSetting();        // 0xF0
void readDataSetting();         // 0xF1
void writeStringValueSetting(); // 0xF2
void readStringValueSetting();  // 0xF3

// Hooks of the keys ------------------------------------------------------------------------------

// Applies one item of a text. `dat2` is that of the command, both times.
using StringToValue = void (*)(uint8_t dat2, SplitState *item, uint8_t sameDat2);

// Appends to the "[" that `text` holds: at most kBufferSize characters in all, and a closing zero.
using ValueToString = void (*)(uint8_t dat2, char *text, int32_t zero);

void processLayerProperty(uint8_t dat2, SplitState *item, uint8_t sameDat2);
void processInputProperty(uint8_t dat2, SplitState *item, uint8_t sameDat2);
void processTakeProperty(uint8_t dat2, SplitState *item, uint8_t sameDat2);
void processBlackscreenProperty(uint8_t dat2, SplitState *item, uint8_t sameDat2);
void processLayerPropertyValueToString(uint8_t dat2, char *text, int32_t zero);
void processInputPropertyValueToString(uint8_t dat2, char *text, int32_t zero);
void processBlackscreenValueToString(uint8_t dat2, char *text, int32_t zero);

// The hook that dat1 of the command selects; null when it selects none.
StringToValue getStringToValueCallbackByDat1(uint8_t dat1);
ValueToString getValueToStringCallbackByDat1(uint8_t dat1);

// Calls `handler`, if there is one, for each item of `text` up to the first text that is no item.
// The text is taken apart in place.
void processInputStr(uint8_t dat2, char *text, StringToValue handler);

// The same with the hook that `dat1` selects, which it returns.
StringToValue processStrValue(uint8_t dat1, uint8_t dat2, char *text);

// Writes "[", what the hook that `dat1` selects appends, and "]" to `text` of kBufferSize + 1
// bytes. Returns the hook. When `dat1` selects none, returns null and `text` is "[]".
ValueToString processValueToString(uint8_t dat1, uint8_t dat2, char *text);

// Waiting for a later model -----------------------------------------------------------------------

// The hook for take as a whole; does nothing.
void processTakeFunc();
