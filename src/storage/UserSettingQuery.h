#pragma once

// Queries on the user setting record and its two views, and setters for a layer's alpha. For a
// number out of range, a query returns 0 (or null) and a setter does nothing. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.
//
// Requires: malloc_saveView() has been called.

#include "storage/UserSettingRecord.h"

// The largest width (pixels) and height (lines) of the 24 output group areas; 0 when none is
// positive.
uint32_t GetOutMaxWidth();
uint32_t GetOutMaxHeight();

// The active size of the video format with the id `port` / 4.
uint32_t getOutputPortWidth(uint32_t port);
uint32_t getOutputPortHeight(uint32_t port);

// The program view: the input port, the alpha and the stacking position of a layer.
uint8_t GetLayerInputPort(uint32_t layer);
void SetLayerAlpha(uint32_t layer, uint8_t alpha);
uint8_t GetLayerAlpha(uint32_t layer);
uint8_t GetLayerAlphaPos(uint32_t layer);

// The preview view: the layer itself, the stacking positions of all 96 layers, and the alpha and
// the stacking position of one.
Layer *GetPreviewLayer(uint32_t layer);
uint8_t *GetPreviewOutLayerAlpha();
void SetPreviewLayerAlpha(uint32_t layer, uint8_t alpha);
uint8_t GetPreviewLayerAlpha(uint32_t layer);
uint8_t GetPreviewLayerAlphaPos(uint32_t layer);
