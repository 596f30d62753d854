#pragma once

// Commands 0xF0 to 0xF3: settings of more than four bytes, as a checksummed block or as a bracketed
// text of key=value items. Each command is a handler in the dispatch table: it reads what follows
// the command on the channel, and answers. Main loop only.
//
// In this model the only block is the network record, and the hooks for the keys of a text do
// nothing.

#include "command/text.h"

#include <cstdint>

// Work area of all four commands. The extra byte is for a block's checksum or a text's closing
// zero.
inline constexpr uint32_t kBufferSize = 4096;
extern uint8_t buffer[kBufferSize + 1];

void writeDataSetting();        // 0xF0
void readDataSetting();         // 0xF1
void writeStringValueSetting(); // 0xF2
void readStringValueSetting();  // 0xF3

// Hooks of the keys ------------------------------------------------------------------------------

// Applies one item of a text. `dat2` and `sameDat2` are both the command's dat2.
using StringToValue = void (*)(uint8_t dat2, SplitState *item, uint8_t sameDat2);

// Appends values and a closing zero to `text`, which holds "[". The text may have at most
// kBufferSize characters before the zero.
using ValueToString = void (*)(uint8_t dat2, char *text, int32_t zero);

void processLayerProperty(uint8_t dat2, SplitState *item, uint8_t sameDat2);
void processInputProperty(uint8_t dat2, SplitState *item, uint8_t sameDat2);
void processTakeProperty(uint8_t dat2, SplitState *item, uint8_t sameDat2);
void processBlackscreenProperty(uint8_t dat2, SplitState *item, uint8_t sameDat2);
void processLayerPropertyValueToString(uint8_t dat2, char *text, int32_t zero);
void processInputPropertyValueToString(uint8_t dat2, char *text, int32_t zero);
void processBlackscreenValueToString(uint8_t dat2, char *text, int32_t zero);

// The hook that the command's dat1 selects; null when it selects none.
StringToValue getStringToValueCallbackByDat1(uint8_t dat1);
ValueToString getValueToStringCallbackByDat1(uint8_t dat1);

// Calls `handler` for each item of `text` and stops at the first text that is not an item. The text
// is split in place. A null `handler` does nothing.
void processInputStr(uint8_t dat2, char *text, StringToValue handler);

// Does the same with the hook that `dat1` selects, and returns that hook.
StringToValue processStrValue(uint8_t dat1, uint8_t dat2, char *text);

// Writes "[", the text of the hook that `dat1` selects, and "]" to `text`, which has kBufferSize +
// 1 bytes. Returns the hook. When `dat1` selects none, returns null and `text` is "[]".
ValueToString processValueToString(uint8_t dat1, uint8_t dat2, char *text);

// Waiting for a later model -----------------------------------------------------------------------

// The hook for take as a whole. Does nothing.
void processTakeFunc();
