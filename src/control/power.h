#pragma once

// Power state of the device: a few flags and the hooks around them. Main loop only.

#include <cstdint>

// 1 on, 0 off, 255 neither since start-up.
extern uint8_t powerState;

extern uint8_t powerOnIsStable;   // 1 once the settling time after power-on has passed
extern uint8_t powerOnTime_Count; // time since power-on; nothing counts it up in this model

// Prints the current tick and notes the power as on. Returns the length of the message.
int32_t Power_On();

void Power_Off();

// 1 when the power is on; 0 when it is off or has not been switched since start-up.
int32_t Is_PowerOn();

// Does nothing: the place to set up what the power-on made available.
void PowerOnSetup();

uint8_t GetPowerOnIsStable();

// To be armed as a delayed call for the end of the settling time.
void powerOnSetStable();

// Clears the flag and takes the delayed call back. Returns 1 if it was waiting, else 0.
int32_t powerOnUnStable();

void Power_On_Time_Reset();

// Where the counter lives; read it there.
uint8_t *getPower_On_Time();
