#include "storage/WorkTime.h"

#include "storage/fatfs.h"

namespace {

constexpr char kFile[] = "workTime.sav";

// State, main loop only: the list, zero until loaded. Written here and by callers of
// getWorkTimeList().
WorkTimeList _workTimeList;

void raiseToBase(uint32_t &address)
{
    const uint32_t base = getWorkTimeListAddress();
    if (address < base) {
        address = base;
    }
}

} // namespace

uint32_t getWorkTimeListAddress()
{
    return 0;
}

uint32_t ReadWorkTime()
{
    return sd_readFile(kFile, &_workTimeList, sizeof _workTimeList);
}

int32_t WriteWorkTime()
{
    return sd_writeFile(kFile, &_workTimeList, sizeof _workTimeList);
}

int32_t saveWorkTimeList()
{
    return WriteWorkTime();
}

void loadWorkTimeList()
{
    ReadWorkTime(); // dropped: only the identification counts
    // The results of saving are dropped: if it fails, the next start makes the same changes.
    if (_workTimeList.identification != kWorkTimeListId) {
        resetWorkTimeList();
        saveWorkTimeList();
    }
    if (_workTimeList.currentAddress == getWorkTimeListAddress()) {
        return;
    }
    _workTimeList.currentAddress = getWorkTimeListAddress();
    raiseToBase(_workTimeList.addresses[1]);
    raiseToBase(_workTimeList.addresses[0]);
    saveWorkTimeList();
}

void resetWorkTimeList()
{
    const uint32_t base = getWorkTimeListAddress();
    _workTimeList = {base, {base, base}, {0, 0}, kWorkTimeListId};
}

// Waiting for a later model -----------------------------------------------------------------------

namespace {

uint8_t isOn; // written by resetPowerOnTime(); never read

} // namespace

WorkTimeList *getWorkTimeList()
{
    return &_workTimeList;
}

void resetPowerOnTime()
{
    isOn = 0;
}
