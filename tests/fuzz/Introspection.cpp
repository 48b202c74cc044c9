// Any text as a module's introspection data.
#include "Target.h"

#include "bus/IntrospectionReader.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    for (const vel::bus::ReturnType& type : vel::bus::returnTypesIn(QString::fromUtf8(fuzz::bytesOf(data, size))))
        fuzz::require(type.descriptor.count(':') >= 2, "a descriptor has three parts");
    return 0;
}
