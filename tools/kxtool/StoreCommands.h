#pragma once

#include <QList>

#include "Command.h"

/// What the tool does with stores: info, verify, plan, migrate, backup, restore and query. Each takes --json.
QList<Command> storeCommands();
