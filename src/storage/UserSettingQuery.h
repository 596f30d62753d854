#pragma once

// Questions about the user setting record and its two views, and the changes of a layer's alpha.
// Numbers out of range: a question gets 0 (or null), a change is not made. Main loop only, behind
// malloc_saveView().

#include "storage/UserSettingRecord.h"

// Active size of output 0, pixels and lines.
uint32_t GetOutHActive();
uint32_t GetOutVActive();

// The largest width and height, in pixels, of the 24 output group areas; 0 when none is positive.
uint32_t GetOutMaxWidth();
uint32_t GetOutMaxHeight();

// Active size of the video format number `port` / 4.
uint32_t getOutputPortWidth(uint32_t port);
uint32_t getOutputPortHeight(uint32_t port);

// The program view: the input port, the alpha and the stacking position of a layer.
uint8_t GetLayerInputPort(uint32_t layer);
void SetLayerAlpha(uint32_t layer, uint8_t alpha);
uint8_t GetLayerAlpha(uint32_t layer);
uint8_t GetLayerAlphaPos(uint32_t layer);

// The same of the preview view; the layer itself, and the stacking positions of all 96.
Layer *GetPreviewLayer(uint32_t layer);
uint8_t *GetPreviewOutLayerAlpha();
void SetPreviewLayerAlpha(uint32_t layer, uint8_t alpha);
uint8_t GetPreviewLayerAlpha(uint32_t layer);
uint8_t GetPreviewLayerAlphaPos(uint32_t layer);
