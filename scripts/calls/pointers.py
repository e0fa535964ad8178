"""What the pointers to functions in an image may hold."""

# The platform calls these at dispatch level.
AT_DISPATCH = ("UrbDone", "IsoTransferCompleted", "BulkTransferCompleted", "TransferWatchdog")

# What a pointer may hold that is no entry of a table of virtual functions, by the functions that call through one: the
# entries of a table, one field of its records, "addresses in" a function that takes them, a single function, or a
# group of them.
RECORDS = {"kKernels": ("Name", "IsSupported", "Scale", "WorkBytes", "BuildColumns")}
GROUPS = {"transport": ("UsbReadRequest", "UsbWriteRequest")}
TARGETS = {
    "AnswerProperty": ("GetCameraProperty", "SetCameraProperty"),
    "ApplyExposure": ("kOwnExposure",),
    "ApplyImageControl": ("kSteps",),
    "ApplyRegisterSet": ("kFramePath", "kApplicationPath", "kTailVGA0708", "kPatches"),
    "ChangePowerAndLed": ("addresses in ChangePowerAndLed",),
    "CheckResizeArguments": ("kRules", "kYuy2Rules"),
    "BuildTables": ("kKernels.BuildColumns",),
    "ChosenScaleKernel": ("kKernels.IsSupported",),
    "Enter": ("kTrialPoint",),
    "GetControl": ("kOperations", "addresses in GetControl"),
    "IdentifySensor": ("kIdentities",),
    "IdentifyOvFamily": ("kOpenSensorBus",),
    "IdentifyOvFamilySilently": ("kOpenSensorBus",),
    "IdentifyWideFamily": ("kOpenWideSensorBus",),
    "PublishFrame": ("addresses in UsbCaptureDevice::CreateStreamRecord",),
    "RawReadRegister": ("transport",),
    "RawWriteRegister": ("transport",),
    "ReadBridgeRegister": ("AbandonCamera",),
    "ReadSelected": ("transport",),
    "ResampleWithFloatingPoint": ("addresses in ResampleWithFloatingPoint",),
    "ResizeYuy2": ("kKernels.Scale",),
    "ScaleByNearest": ("addresses in ScaleYuy2ByNearest", "addresses in ScaleRgb24ByNearest"),
    "ScaleWithPlan": ("addresses in ScaleBySsse3",),
    "ServeState": ("kLightTransitions",),
    "SetControl": ("kOperations", "addresses in SetControl"),
    "SetLedBitByPath": ("addresses in SetLedBitByPath",),
    "SetPinFormat": ("CapturePin::SetDataFormat",),
    "SinkIsProcessing": ("kPinOperations",),
    "StreamReconfigure": ("kPinOperations",),
    "TranslateReply": ("kTranslations",),
    "TranslateSet": ("kTranslations",),
    "UsbCaptureDevice::AcquireStream": ("UsbCaptureDevice::SetStreamFormat",),
    "WriteSelected": ("transport",),
    "Yuy2Scale::Yuy2Scale": ("kKernels.WorkBytes",),
}

# Functions that call through a pointer which is null in an image.
CALL_NOTHING = {
    "FinishTransfer": "the driver starts no transfer with a callback",
    "TraceCamera": "an image has no sink of the trace",
}

# The platform calls them: the entries of tables, and functions.
BY_PLATFORM = (
    "CaptureDeviceDispatch", "CaptureFilterDispatch", "CapturePinDispatch", "kPinAutomation", "kPinEntries",
    "kPropertySets", "DestroyCaptureDevice", "DestroyCaptureFilter", "DestroyCapturePin", "FreeBulkDoneWork",
    "RawFrameThread", "RunStreamReset", *AT_DISPATCH,
)

# Functions whose address is kept, and that nothing calls.
NOT_CALLED = ("StreamReconfigure",)

# The table of the object whose virtual functions a class or a function calls; none if it is the platform's clock.
DEVICE, PIN, CLOCK = "CameraUsbDevice", "CapturePin", ""
OWN_TABLES = {
    "UsbCaptureDevice": DEVICE, "CaptureDevice": DEVICE, "CaptureFilter": DEVICE, "CapturePin": DEVICE,
    "CapturePin::CompleteHeader": CLOCK, "CapturePin::GiveUpStream": CLOCK, "CapturePin::Process": CLOCK,
    "CapturePin::ReleaseClock": CLOCK, "StreamReconfigure": DEVICE, "AddPinEvent": PIN,
    "DeviceRemovedBySurprise": DEVICE, "GetFilterProperty": DEVICE, "GetPinDroppedFrames": PIN,
    "IsPinProcessing": PIN, "PostStartDevice": DEVICE, "ProcessPin": PIN, "QueryDeviceCapabilities": DEVICE,
    "RemoveDevice": DEVICE, "SetDevicePower": DEVICE, "SetFilterProperty": DEVICE, "SetPinState": PIN,
    "StartDevice": DEVICE,
}
