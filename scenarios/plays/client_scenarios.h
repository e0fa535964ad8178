#pragma once

#include "scenarios/stage/stage.h"

namespace lidcam::scenarios {

// Scenarios of an installed camera and the applications that use it: one to three threads that
// open, send requests, connect and stream in random order, during events of plug and play, power or
// the bus.

void Clients(Stage& stage);
void TwoClients(Stage& stage);
void WildClients(Stage& stage);
void ClientsAndPower(Stage& stage);
void ClientsAndRestarts(Stage& stage);
void ClientsAndRemoval(Stage& stage);
void ClientsAndFaults(Stage& stage);
void OutOfMemoryClient(Stage& stage);
void Controls(Stage& stage);
void StoppedRead(Stage& stage);

}  // namespace lidcam::scenarios
