#include "storage/UserSettingQuery.h"

#include "storage/UserSetting.h"
#include "video/VideoFormatTable.h"

namespace {

constexpr uint32_t kPortsOfAFormat = 4;

uint32_t largest(int32_t GroupArea::*size)
{
    int32_t result = 0;
    for (const GroupArea &area : GetUserSetting()->groupAreas) {
        if (area.*size > result) {
            result = area.*size;
        }
    }
    return static_cast<uint32_t>(result);
}

void setAlpha(ViewSetting *view, uint32_t layer, uint8_t alpha)
{
    if (layer < kLayerCount) {
        view->layerAlpha[layer] = alpha;
    }
}

uint8_t alphaOf(const ViewSetting *view, uint32_t layer)
{
    return layer < kLayerCount ? view->layerAlpha[layer] : 0;
}

uint8_t alphaPosOf(const ViewSetting *view, uint32_t layer)
{
    return layer < kLayerCount ? view->layerAlphaPos[layer] : 0;
}

} // namespace

uint32_t GetOutMaxWidth()
{
    return largest(&GroupArea::width);
}

uint32_t GetOutMaxHeight()
{
    return largest(&GroupArea::height);
}

uint32_t getOutputPortWidth(uint32_t port)
{
    return GetHDEByVideoFormat(port / kPortsOfAFormat);
}

uint32_t getOutputPortHeight(uint32_t port)
{
    return GetVDEByVideoFormat(port / kPortsOfAFormat);
}

uint8_t GetLayerInputPort(uint32_t layer)
{
    return layer < kLayerCount ? GetProgramViewSetting()->layers[layer].inputPort : 0;
}

void SetLayerAlpha(uint32_t layer, uint8_t alpha)
{
    setAlpha(GetProgramViewSetting(), layer, alpha);
}

uint8_t GetLayerAlpha(uint32_t layer)
{
    return alphaOf(GetProgramViewSetting(), layer);
}

uint8_t GetLayerAlphaPos(uint32_t layer)
{
    return alphaPosOf(GetProgramViewSetting(), layer);
}

Layer *GetPreviewLayer(uint32_t layer)
{
    return layer < kLayerCount ? &GetPreviewViewSetting()->layers[layer] : nullptr;
}

uint8_t *GetPreviewOutLayerAlpha()
{
    return GetPreviewViewSetting()->layerAlphaPos;
}

void SetPreviewLayerAlpha(uint32_t layer, uint8_t alpha)
{
    setAlpha(GetPreviewViewSetting(), layer, alpha);
}

uint8_t GetPreviewLayerAlpha(uint32_t layer)
{
    return alphaOf(GetPreviewViewSetting(), layer);
}

uint8_t GetPreviewLayerAlphaPos(uint32_t layer)
{
    return alphaPosOf(GetPreviewViewSetting(), layer);
}
