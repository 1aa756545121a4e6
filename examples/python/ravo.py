"""The RAVO library for Python: every export of libravo.so, typed for ctypes.

    import ravo
    record = ravo.RAVOLoadMITHeader("/data/100.hea")

The functions keep their C names and meanings; ravo.h and the guide tell what they do.  Paths may be
str, bytes or os.PathLike.  A null pointer result is false.

Callbacks are decorated functions, which must stay alive as long as the library may call them; at
module level they do:

    @ravo.RAVO_LISTENER
    def listen(connected):
        ...

They run on the library's threads, one at a time with the rest of Python.  What ravo.h says about a
callback's thread, and about what it may call, holds here too.  No callback is the null one:
ravo.RAVO_PROGRESS().  Call RAVOFree before the interpreter ends: a callback that comes later finds
no Python.
"""

import enum
import os
from ctypes import (
    CDLL, CFUNCTYPE, POINTER, Structure, c_bool, c_char, c_char_p, c_double, c_int, c_int32,
    c_int64, c_size_t, c_uint, c_uint8, c_uint16, c_uint32, c_uint64, c_void_p, addressof,
    sizeof,
)

#: The library; the environment variable RAVO_LIBRARY names another one.
library = CDLL(os.environ.get("RAVO_LIBRARY", "libravo.so.1"))


# ---- Enumerations ------------------------------------------------------------------------------


class ECG_Lead(enum.IntEnum):
    """The simulator's eight outputs."""

    I, II, V1, V2, V3, V4, V5, V6, NONE = range(9)


class WAVEFORM_TYPE(enum.IntEnum):
    """Shapes of RAVOLoadWaveform and RAVOLoadWaveformEx."""

    SINE, TRIANGLE, SQUARE = range(3)


class WaveformType(enum.IntEnum):
    """Kinds of material: values of g_WaveformType."""

    NONE, DIRECT, AHA, MIT, TARNWICK, TABLE, EDF_FOUR_CHEST, EDF = range(8)
    SINE, TRIANGLE, RECTANGLE_PULSE, SQUARE, TRIANGLE_PULSE = range(129, 134)


class RAVO_ERROR(enum.IntEnum):
    """Why a call failed: results of RAVOGetLastError."""

    NONE, NO_SUCH_FILE, NOT_READABLE, FORMAT, UNSUPPORTED, MEMORY, ARGUMENT = range(7)
    NOTHING_LOADED, NO_LEAD, NOT_CONNECTED, NOT_IDENTIFIED, BUSY, REFUSED, WRITE = range(7, 14)
    SILENT, CLOSING, SYSTEM, CALLBACK, FORKED, END = range(14, 20)


class RAVO_FINDING(enum.IntEnum):
    """What the search found on a port: Finding of RAVO_SEARCH_ENTRY."""

    SIMULATOR, ABSENT, CANNOT_OPEN, EXCLUSIVE, LOCKED, LOCK_UNREADABLE = range(1, 7)
    NO_LOCK_DIRECTORY, LOCK_REFUSED, CANNOT_WRITE, NO_ANSWER = range(7, 11)
    FOREIGN_ANSWER, LOST, NO_FLASH_TABLE = range(11, 14)


#: The noise of RAVOLoadDatabaseCTS_CSE that is none; RAVOGetBuiltinNoise names the others.
CTSCSE_NOISE_NONE = 14

#: The order of the twelve leads that RAVO_PROGRESS and RAVO_SIGNAL are given.
LEADS = ("I", "II", "III", "aVR", "aVL", "aVF", "V1", "V2", "V3", "V4", "V5", "V6")


# ---- Structures --------------------------------------------------------------------------------


def _entries(structure, field, entry):
    """The entries of an array at the end of a structure, which C declares with one."""
    start = addressof(structure) + getattr(type(structure), field).offset
    return (entry * structure.NumberOfSignals).from_address(start)


class WFDB_SIGNAL(Structure):
    _pack_ = 1
    _fields_ = [
        ("FileName", c_char * 256),
        ("Format", c_int32),
        ("SamplesPerFrame", c_int32),
        ("Skew", c_int32),
        ("ByteOffset", c_int32),
        ("ADCGain", c_double),
        ("ADCBaseLine", c_int32),
        ("ADCUnit", c_char),
        ("Reserved", c_char * 3),
        ("ADCResolution", c_int32),
        ("ADCZero", c_int32),
        ("InitialValue", c_int32),
        ("Checksum", c_int32),
        ("BlockSize", c_int32),
        ("Description", c_char * 16),
    ]


class WFDB_HEADER(Structure):
    _pack_ = 1
    _fields_ = [
        ("RecordName", c_char * 256),
        ("NumberOfSetments", c_int32),
        ("NumberOfSignals", c_int64),
        ("SamplingFrequency", c_int64),
        ("CounterFrequency", c_int32),
        ("BaseCounter", c_int32),
        ("NumberOfSamplesPerSignal", c_int64),
        ("BaseTime", c_char * 16),
        ("BaseDate", c_char * 16),
        ("Reserved", c_uint8 * 32),
        ("Signal", WFDB_SIGNAL * 1),
    ]

    @property
    def signals(self):
        """All entries of Signal; gone with the header."""
        return _entries(self, "Signal", WFDB_SIGNAL)


class WFDB_ANNOTATION(Structure):
    _pack_ = 1
    _fields_ = [
        ("Time", c_uint32),
        ("Type", c_uint8),
        ("Reserved", c_uint8),
        ("SubType", c_uint16),
        ("Channel", c_uint16),
        ("Number", c_uint16),
        ("AuxText", c_char * 32),
    ]


class ECG_SIGNAL(Structure):
    _pack_ = 1
    _fields_ = [("Description", c_char * 16), ("Lead", c_int32)]


class ECG_HEADER(Structure):
    _pack_ = 1
    _fields_ = [
        ("RecordName", c_char * 16),
        ("NumberOfSignals", c_int64),
        ("SamplingFrequency", c_int64),
        ("NumberOfSamples", c_int64),
        ("WFDBHeader", POINTER(WFDB_HEADER)),
        ("Reserved", c_uint8 * 8),
        ("Signal", ECG_SIGNAL * 1),
    ]

    @property
    def signals(self):
        """All entries of Signal; gone with the header."""
        return _entries(self, "Signal", ECG_SIGNAL)


class MODEL_INFORMATION(Structure):
    _pack_ = 1
    _fields_ = [("ModelName", c_char * 16), ("SerialNumber", c_char * 16)]


class RAVO_OUTPUT_INFORMATION(Structure):
    _fields_ = [
        ("DACBits", c_uint32),
        ("CalibrationLoaded", c_uint32),
        ("DevicePath", c_char * 512),
        ("CalibrationFile", c_char * 256),
    ]


class RAVO_OUTPUT_POSITION(Structure):
    _fields_ = [
        ("FramesSent", c_uint64),
        ("FramesPlayed", c_uint64),
        ("StartTime", c_int64),
        ("FirstRequestTime", c_int64),
        ("LastRequestTime", c_int64),
        ("Requests", c_uint32),
        ("FramesPerRequest", c_uint32),
        ("NominalRate", c_double),
        ("MeasuredRate", c_double),
        ("DelayReports", c_uint32),
        ("DelayTotal", c_uint32),
    ]


class RAVO_SEARCH_ENTRY(Structure):
    _fields_ = [
        ("Port", c_int32),
        ("Finding", c_int32),
        ("SystemError", c_int32),
        ("Owner", c_int32),
        ("AnswerSize", c_uint32),
        ("Answer", c_uint8 * 12),
        ("OwnerName", c_char * 32),
        ("Text", c_char * 192),
    ]


class RAVO_BUILTIN_RECORD(Structure):
    _fields_ = [
        ("Name", c_char * 16),
        ("SamplesPerPeriod", c_uint32),
        ("NumberOfSamples", c_uint32),
        ("SamplingFrequency", c_uint32),
        ("Licensed", c_uint32),
    ]


class RAVO_BUILTIN_NOISE(Structure):
    _fields_ = [("Name", c_char * 16), ("Licensed", c_uint32)]


# What the C headers assert at compile time.
for _structure, _size in (
    (WFDB_SIGNAL, 324), (WFDB_HEADER, 680), (WFDB_ANNOTATION, 44), (ECG_SIGNAL, 20),
    (ECG_HEADER, 76), (MODEL_INFORMATION, 32), (RAVO_OUTPUT_INFORMATION, 776),
    (RAVO_OUTPUT_POSITION, 72), (RAVO_SEARCH_ENTRY, 256), (RAVO_BUILTIN_RECORD, 32),
    (RAVO_BUILTIN_NOISE, 20),
):
    assert sizeof(_structure) == _size, _structure.__name__
del _structure, _size


# ---- Callbacks ---------------------------------------------------------------------------------

#: listener(connected: bool)
RAVO_LISTENER = CFUNCTYPE(None, c_bool)
#: progress(time: float, record_time: float, leads, end: bool); leads[0] to leads[11], during the
#: call only
RAVO_PROGRESS = CFUNCTYPE(None, c_double, c_double, POINTER(c_double), c_bool)
#: delay(value: int)
RAVO_DELAY = CFUNCTYPE(None, c_int)
#: signal(time: float, leads, end: bool)
RAVO_SIGNAL = CFUNCTYPE(None, c_double, POINTER(c_double), c_bool)


# ---- Functions ---------------------------------------------------------------------------------


class _Path(c_char_p):
    """An argument that names a file."""

    @classmethod
    def from_param(cls, path):
        return c_char_p.from_param(None if path is None else os.fsencode(path))


def _declare(symbol, result, *arguments):
    function = getattr(library, symbol)
    function.restype = result
    function.argtypes = arguments
    return function


# Connection
RAVOInit = _declare("RAVOInit", c_bool, RAVO_LISTENER)
RAVOInitPort = _declare("RAVOInitPort", c_bool, c_int, RAVO_LISTENER)
RAVOConnect = _declare("RAVOConnect", c_bool, c_int, c_uint)
RAVOWaitConnected = _declare("RAVOWaitConnected", c_bool, c_uint)
RAVOFree = _declare("RAVOFree", None)
RAVOGetSearchReport = _declare(
    "RAVOGetSearchReport", c_bool, c_int, POINTER(RAVO_SEARCH_ENTRY))

# The simulator
RAVOGetSerialNumber = _declare("RAVOGetSerialNumber", c_char_p)
RAVOGetDeviceInformation = _declare("RAVOGetDeviceInformation", c_bool, POINTER(MODEL_INFORMATION))
RAVOGetOutputInformation = _declare(
    "RAVOGetOutputInformation", c_bool, POINTER(RAVO_OUTPUT_INFORMATION))

# Material from files
RAVOLoadMITHeader = _declare("RAVOLoadMITHeader", POINTER(ECG_HEADER), _Path)
RAVOLoadMITDatabase = _declare("RAVOLoadMITDatabase", c_bool, POINTER(ECG_HEADER))
RAVOUpdateECGHeaderMappingLead = _declare(
    "RAVOUpdateECGHeaderMappingLead", None, POINTER(ECG_HEADER))
RAVOFreeECGHeader = _declare("RAVOFreeECGHeader", None, POINTER(ECG_HEADER))
RAVOLoadDatabaseAHA = _declare("RAVOLoadDatabaseAHA", POINTER(ECG_HEADER), _Path)
RAVOLoadDatabaseCSE = _declare("RAVOLoadDatabaseCSE", POINTER(ECG_HEADER), _Path)
RAVOLoadDatabaseTarnwick = _declare("RAVOLoadDatabaseTarnwick", POINTER(ECG_HEADER), _Path)
LoadDatabaseEDF = _declare("LoadDatabaseEDF", POINTER(ECG_HEADER), _Path, c_int32)

# C++ has two functions of this name.
LoadDatabaseNoiseTest = _declare("_Z21LoadDatabaseNoiseTestv", POINTER(ECG_HEADER))
LoadDatabaseNoiseTestOf = _declare(
    "_Z21LoadDatabaseNoiseTestPKcS0_i", POINTER(ECG_HEADER), _Path, _Path, c_int)

# Built-in material
RAVOLoadDatabaseCTS_CSE = _declare("RAVOLoadDatabaseCTS_CSE", POINTER(ECG_HEADER), c_int, c_int)
RAVOGetBuiltinRecord = _declare(
    "RAVOGetBuiltinRecord", c_bool, c_int, POINTER(RAVO_BUILTIN_RECORD))
RAVOGetBuiltinNoise = _declare("RAVOGetBuiltinNoise", c_bool, c_int, POINTER(RAVO_BUILTIN_NOISE))
RAVOGetBuiltinNoiseSamples = _declare("RAVOGetBuiltinNoiseSamples", c_bool, c_int, POINTER(c_double))
RAVOLoadWaveform = _declare("RAVOLoadWaveform", c_bool, c_int, c_double, c_double)
RAVOLoadWaveformRectanglePulse = _declare(
    "RAVOLoadWaveformRectanglePulse", c_bool, c_int, c_double, c_double)
RAVOLoadWaveformTrianglePulse = _declare(
    "RAVOLoadWaveformTrianglePulse", c_bool, c_int, c_double, c_double)
RAVOLoadWaveformEx = _declare("RAVOLoadWaveformEx", c_bool, c_int, c_double, POINTER(c_double))
RAVOLoadWaveformCalibrationMode = _declare(
    "RAVOLoadWaveformCalibrationMode", c_bool, c_double, c_double)
RAVOLoadWaveformAutoCalibrationMode = _declare("RAVOLoadWaveformAutoCalibrationMode", c_bool)
RAVOGetWaveformSignal = _declare("RAVOGetWaveformSignal", c_bool, c_int, c_int, RAVO_SIGNAL)

# Output
RAVOEnableLoop = _declare("RAVOEnableLoop", None, c_bool)
RAVOEnableNoise = _declare("RAVOEnableNoise", None, c_bool)
RAVOOutputWaveform = _declare("RAVOOutputWaveform", c_bool, c_int, RAVO_PROGRESS, RAVO_DELAY)
RAVOOutputOnce = _declare(
    "RAVOOutputOnce", c_bool, c_int, c_double, RAVO_PROGRESS, RAVO_DELAY)
RAVOStopOutput = _declare("RAVOStopOutput", None)
RAVOIsOutputting = _declare("RAVOIsOutputting", c_bool)
RAVOGetOutputPosition = _declare("RAVOGetOutputPosition", c_bool, POINTER(RAVO_OUTPUT_POSITION))
RAVOGetVersion = _declare("RAVOGetVersion", c_uint)

# Why a call failed
RAVOGetLastError = _declare("RAVOGetLastError", c_int, c_char_p, c_size_t)

# Records
WFDBReadHeader = _declare("WFDBReadHeader", POINTER(WFDB_HEADER), _Path)
WFDBFreeHeader = _declare("WFDBFreeHeader", None, POINTER(WFDB_HEADER))
WFDBMemFree = _declare("WFDBMemFree", None, c_void_p)
WFDBLoadSignal = _declare("WFDBLoadSignal", c_int, _Path, POINTER(WFDB_HEADER))
WFDBNextSample = _declare(
    "WFDBNextSample", c_int, POINTER(WFDB_HEADER), POINTER(c_double), c_int)
WFDBSeek = _declare("WFDBSeek", c_int, POINTER(WFDB_HEADER), c_int)
WFDBLoadAnnotation = _declare("WFDBLoadAnnotation", c_int, _Path, POINTER(WFDB_HEADER))
WFDBNextAnnotation = _declare(
    "WFDBNextAnnotation", c_int, POINTER(WFDB_HEADER), POINTER(WFDB_ANNOTATION))
WFDBAnnotationSeekBegin = _declare("WFDBAnnotationSeekBegin", None, POINTER(WFDB_HEADER))
WFDBSignalAmplitude = _declare(
    "WFDBSignalAmplitude", POINTER(c_double), POINTER(WFDB_HEADER), POINTER(c_int))
WFDBSignalAmplitudeEx = _declare(
    "WFDBSignalAmplitudeEx", POINTER(c_double), _Path, POINTER(c_int))

# C++ has two functions of this name.
sigamp = _declare(
    "_Z6sigampP11WFDB_HEADERPPd", c_int, POINTER(WFDB_HEADER), POINTER(POINTER(c_double)))
sigampOf = _declare("_Z6sigampPKcPPd", c_int, _Path, POINTER(POINTER(c_double)))

# Noise stress test
NSTSetSignal = _declare("NSTSetSignal", None, _Path)
NSTAddNoise = _declare("NSTAddNoise", None, _Path, c_double)
NSTResetNoise = _declare("NSTResetNoise", None)
NSTOutput = _declare("NSTOutput", c_int, _Path)
WFDBNoiseTestExSetSignal = _declare("WFDBNoiseTestExSetSignal", None, _Path)
WFDBNoiseTestExAddNoise = _declare("WFDBNoiseTestExAddNoise", None, _Path, c_double)
WFDBNoiseTestExResetNoise = _declare("WFDBNoiseTestExResetNoise", None)
WFDBNoiseTestExOutput = _declare("WFDBNoiseTestExOutput", c_int, _Path)
WFDBNoiseTest = _declare("WFDBNoiseTest", c_int, _Path, _Path, _Path, c_int)

# C++ has two functions of this name.
nst = _declare("_Z3nstv", c_int)
nstOf = _declare("_Z3nstPcS_S_d", c_int, _Path, _Path, _Path, c_double)

# Converters
WFDBConvertEDF = _declare("WFDBConvertEDF", c_int, _Path, _Path)
edf2mit = _declare("edf2mit", c_int, _Path, _Path)
WFDBConvertAHA = _declare("WFDBConvertAHA", c_int, _Path, _Path)
ahaecg2mit = _declare("ahaecg2mit", c_int, _Path, _Path)


# ---- Settings ----------------------------------------------------------------------------------

#: The directory of converted EDF records: g_pszRepository.value = b"/tmp/edf"
g_pszRepository = c_char_p.in_dll(library, "g_pszRepository")
#: The kind of loaded material: g_WaveformType.value = WaveformType.EDF
g_WaveformType = c_int32.in_dll(library, "g_WaveformType")
