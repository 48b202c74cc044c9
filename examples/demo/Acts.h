// The play: what the demo shows, in order.
#pragma once

class Stage;

/// Modules start, under a supervisor, talk, refuse, fail and end.
void playActOne(Stage& stage);

/// The maintenance of modules that run: log levels, resets, save and restore, memory tracing, generic calls.
void playActTwo(Stage& stage);

/// The supervisor ends everybody, then itself, and leaves the bus.
void playFinale(Stage& stage);
