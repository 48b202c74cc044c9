// The end: the supervisor stops everybody, then itself.
#include "demo/Acts.h"

#include "demo/Stage.h"

void playFinale(Stage& stage) {
    stage.act("The end");
    stage.scene("The supervisor stops everybody, then itself");
    stage.call("ApplicationManager", "shutDown");
    stage.expect("Media", "stop: the music is off");
    for (const char* module : {"Tuner", "Media", "Playlists", "Display", "ApplicationManager"})
        stage.expectEnd(module);
    stage.expectGone("ApplicationManager"); // its name is free for the next one
}
