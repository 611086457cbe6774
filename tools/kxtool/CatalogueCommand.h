#pragma once

#include "Command.h"

/// kxtool catalogue create|load|count|explain: makes a remote catalogue, fills it and asks it.
[[nodiscard]] Command catalogueCommand();
