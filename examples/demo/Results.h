// The table at the demo's end.
#pragma once

class Stage;
class Timeline;

/// Prints which process was to end how and which did; true when all did as expected.
bool printResults(Timeline& timeline, const Stage& stage);
