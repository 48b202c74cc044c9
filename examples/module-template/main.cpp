#include "Dimmer.h"

#include <VelApplication>

int main(int argc, char** argv) {
    VelApplication application(argc, argv);
    Dimmer module;
    return application.exec();
}
