#pragma once

// Switching the power on, the settling time after it, and the time since then. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

extern uint8_t powerOnIsStable;   // 1 once the settling time after power-on has passed
extern uint8_t powerOnTime_Count; // time since power-on; nothing counts it up

// Prints the current tick and sets the power state to on. Returns the length of the message.
int32_t Power_On();

// Does nothing. It is the place to set up what the power-on made available.
void PowerOnSetup();

uint8_t GetPowerOnIsStable();

// Sets powerOnIsStable. Meant to be armed as a delayed call for the end of the settling time.
void powerOnSetStable();

// Clears powerOnIsStable and removes the delayed call. Returns 1 if the call was waiting, else 0.
int32_t powerOnUnStable();

void Power_On_Time_Reset();

// Returns the address of powerOnTime_Count.
uint8_t *getPower_On_Time();
