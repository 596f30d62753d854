#include "command/unsupported.h"

#include "command/reply.h"

void WrInputSource()
{
    SendAckOrNack(kNak);
}

void WrOutputFormat()
{
    SendAckOrNack(kNak);
}

void WrLayerSetting()
{
    SendAckOrNack(kNak);
}

void WrOutputSetting()
{
    SendAckOrNack(kNak);
}

void WrInputSetting()
{
    SendAckOrNack(kNak);
}

void WrSwitchSetting()
{
    SendAckOrNack(kNak);
}

void WrTpMode()
{
    SendAckOrNack(kNak);
}

void WRHdmiOutDeTask()
{
    SendAckOrNack(kNak);
}

void cmd_timeControl_task()
{
    SendAckOrNack(kNak);
}

void cmd_workTime_task()
{
    SendAckOrNack(kNak);
}
