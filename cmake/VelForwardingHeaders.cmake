# The public headers, and the one-line header of each by Qt's habit: <VelModule> for module/VelModule.h.

set(VEL_PUBLIC_HEADERS
    app/VelApplication.h
    app/VelExceptionNet.h
    bus/VelDBusInterface.h
    bus/VelReturnType.h
    errors/VelDemangle.h
    errors/VelException.h
    errors/VelExitCodes.h
    events/VelDBusTypes.h
    events/VelEvent.h
    module/VelModule.h
    module/VelModuleMain.h
    module/VelUnixSignals.h
    platform/QtStateMachine.h
    platform/VelLogger.h
    typed/VelCallError.h
    typed/VelFieldTypes.h
    typed/VelSubscription.h
    typed/VelTypedCalls.h
    typed/VelTypedEvents.h
)
set(VEL_SUPPORTING_HEADERS # installed because the public headers include them
    platform/VelExport.h
    typed/Catalogue.h
    typed/Delivery.h
    typed/Form.h
    typed/Handlers.h
    typed/Question.h
)
set(VEL_FORWARDING_DIR ${PROJECT_BINARY_DIR}/include)

set(VEL_FORWARDING_HEADERS ${VEL_FORWARDING_DIR}/Vel)
set(vel_all_headers "")
foreach(header IN LISTS VEL_PUBLIC_HEADERS)
    get_filename_component(name ${header} NAME_WE)
    file(CONFIGURE OUTPUT ${VEL_FORWARDING_DIR}/${name} CONTENT "#include \"${header}\"\n")
    list(APPEND VEL_FORWARDING_HEADERS ${VEL_FORWARDING_DIR}/${name})
    string(APPEND vel_all_headers "#include \"${header}\"\n")
endforeach()
file(CONFIGURE OUTPUT ${VEL_FORWARDING_DIR}/Vel CONTENT "${vel_all_headers}")
