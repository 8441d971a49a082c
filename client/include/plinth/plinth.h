// SPDX-License-Identifier: BSD-3-Clause
// Everything of the plinthd client library.
#ifndef PLINTH_PLINTH_H
#define PLINTH_PLINTH_H

#include <plinth/daemon.h>
#include <plinth/features.h>
#include <plinth/mapkeys.h>
#include <plinth/plainvalue.h>
#include <plinth/sim.h>
#include <plinth/storages.h>

#endif // PLINTH_PLINTH_H
