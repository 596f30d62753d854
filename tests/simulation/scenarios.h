#pragma once

// Short lives, of which every call can be gone through (scripts/simulate --every-call).

#include <string>
#include <vector>

#include "tests/simulation/life.h"

struct Scenario {
    std::string kind; // for the counts
    std::string name; // for --scenario
    FirstDay firstDay;
    std::vector<Action> plan;
};

const std::vector<Scenario> &scenarios();
