#pragma once

// Switching the power on: the state, the settling time after it, and the time since. Main loop
// only.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

extern uint8_t powerOnIsStable;   // 1 once the settling time after power-on has passed
extern uint8_t powerOnTime_Count; // time since power-on; nothing counts it up

// Prints the current tick and notes the power as on. Returns the length of the message.
int32_t Power_On();

// Does nothing: the place to set up what the power-on made available.
void PowerOnSetup();

uint8_t GetPowerOnIsStable();

// To be armed as a delayed call for the end of the settling time.
void powerOnSetStable();

// Clears the flag and removes the delayed call. Returns 1 if that was waiting, else 0.
int32_t powerOnUnStable();

void Power_On_Time_Reset();

// Where the counter lives; callers read it there.
uint8_t *getPower_On_Time();
