#include "tests/simulation/model.h"

#include "tests/simulation/loop.h"
#include "tests/simulation/mirror.h"
#include "tests/simulation/protocol.h"
#include "tests/simulation/records.h"

Model::Model()
    : loop(add<Loop>()), mirror(add<Mirror>()), protocol(add<Protocol>()), records(add<Records>())
{
}

Model::~Model() = default;
