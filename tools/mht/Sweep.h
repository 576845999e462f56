// mht sweep: a grid of simulations (table shapes, chain depths, move searches, seeds), run
// on every core, summarised one row per table shape, chain depth and search.
//
// Each simulation is mht simulate's, with the default banks and random keys: it fills its
// own table until the first key finds no room, then churns. Simulations share no mutable
// state (each has its own table, collections and key source; the library's registry and
// trace handle are only read, the trace being off), so each runs on whichever thread takes
// it. The offline placer's first failure (Optimum.h) depends on the table shape and the
// seed only, so it is computed once per pair, as a task of its own.
//
// The pieces, in the order a sweep uses them:
//   SweepGrid.h     the grid and the parsers of its options
//   SweepRunner.h   the pool of threads that runs the grid's cells, and what they found
//   SweepFigures.h  what a row's runs amount to (means, spreads, the first error)
//   SweepReport.h   the table, the JSON and the chart
#pragma once

#include "SweepFigures.h"
#include "SweepGrid.h"
#include "SweepReport.h"
#include "SweepRunner.h"
