"""The typed module compared with its sources: the list of exports, the prototypes and structures of
the headers, the values of the enumerations."""

import ctypes
import os
import re
import subprocess
import unittest

import ravo

SOURCE = os.environ["RAVO_SOURCE"]
HEADERS = [f"include/ravo/{name}.h"
           for name in ("ravo", "wfdb", "error", "search", "material", "device", "builtin")]

C_TYPES = {
    "void": None, "bool": ctypes.c_bool, "int": ctypes.c_int, "unsigned int": ctypes.c_uint,
    "double": ctypes.c_double, "int32_t": ctypes.c_int32, "WaveformType": ctypes.c_int32,
    "size_t": ctypes.c_size_t, "const char*": ctypes.c_char_p, "char*": ctypes.c_char_p,
    "void*": ctypes.c_void_p,
}


def read(path):
    with open(os.path.join(SOURCE, path), encoding="utf-8") as file:
        return re.sub(r"/\*.*?\*/", "", file.read(), flags=re.DOTALL)


def header_text():
    return "\n".join(read(header) for header in HEADERS)


def exported_symbols():
    return set(read("tests/api/exports.txt").split())


def functions():
    kind = type(ravo.library.RAVOGetVersion)
    return {value.__name__: value for value in vars(ravo).values() if isinstance(value, kind)}


def ctypes_of(c_type):
    """The ctypes type of a C type as the headers write it."""
    if c_type in C_TYPES:
        return C_TYPES[c_type]
    if c_type.endswith("*"):
        return ctypes.POINTER(ctypes_of(c_type[:-1]))
    return getattr(ravo, c_type)


def type_of(argument):
    """`const char* path` is a `const char*`."""
    return argument.rsplit(" ", 1)[0]


def prototypes():
    """(name, result, argument types) of every function that the headers declare."""
    found = re.findall(r"_API ([\w ]+\**) (\w+)\(([^()]*)\);", header_text())
    for result, name, arguments in found:
        arguments = " ".join(arguments.split())
        listed = [] if arguments in ("", "void") else arguments.split(", ")
        yield name, result, [type_of(argument) for argument in listed]


def symbol_of(name, argument_types):
    """The name that the linker uses: C++ functions are found by their demangled form."""
    if name in functions():
        return name
    wanted = f"{name}({', '.join(argument_types)})".replace("const char*", "char const*")
    for symbol in functions():
        if subprocess.check_output(["c++filt", symbol], text=True).strip() == wanted:
            return symbol
    raise AssertionError(f"not declared: {wanted}")


class ModuleTest(unittest.TestCase):
    def test_declares_exactly_the_exports(self):
        settings = {name for name in vars(ravo) if name.startswith("g_")}
        self.assertEqual(set(functions()) | settings, exported_symbols())

    def test_functions_have_the_types_of_the_headers(self):
        seen = set()
        for name, result, argument_types in prototypes():
            symbol = symbol_of(name, argument_types)
            seen.add(symbol)
            function = functions()[symbol]
            with self.subTest(symbol):
                self.assertIs(function.restype, ctypes_of(result))
                self.assertEqual(len(function.argtypes), len(argument_types))
                for declared, c_type in zip(function.argtypes, argument_types):
                    self.assertTrue(issubclass(declared, ctypes_of(c_type)), c_type)
        self.assertEqual(seen, set(functions()))

    def test_structures_have_the_layout_of_c(self):
        expected = subprocess.check_output([os.environ["RAVO_LAYOUT_PROGRAM"]], text=True)
        actual = []
        for name, structure in vars(ravo).items():
            if isinstance(structure, type) and issubclass(structure, ctypes.Structure):
                if structure is not ctypes.Structure:
                    actual.append(f"{name} {ctypes.sizeof(structure)}")
                    for field, *_ in structure._fields_:
                        place = getattr(structure, field)
                        actual.append(f"{name}.{field} {place.offset} {place.size}")
        self.assertGreater(len(actual), 50)
        self.assertEqual(sorted(actual), sorted(expected.split("\n")[:-1]))

    def test_enumerations_have_the_values_of_c(self):
        text = header_text()
        for enumeration, prefix in ((ravo.ECG_Lead, "ECG_LEAD_"),
                                    (ravo.WAVEFORM_TYPE, "WAVEFORM_"),
                                    (ravo.WaveformType, "MATERIAL_"),
                                    (ravo.RAVO_ERROR, "RAVO_ERROR_"),
                                    (ravo.RAVO_FINDING, "RAVO_FINDING_")):
            body = re.search(rf"enum {enumeration.__name__}(?: \w+)? {{([^}}]*)}}", text).group(1)
            expected = {name: int(value) for name, value in
                        re.findall(rf"{prefix}(\w+) = (\d+)", body)}
            self.assertEqual({item.name: item.value for item in enumeration}, expected)

    def test_callbacks_have_the_types_of_the_headers(self):
        found = re.findall(r"typedef void \(\*(\w+)\)\(([^()]*)\);", header_text())
        self.assertEqual(len(found), 4)
        for name, arguments in found:
            expected = [ctypes_of(type_of(argument)) for argument in arguments.split(", ")]
            self.assertEqual(list(getattr(ravo, name)._argtypes_), expected, name)
            self.assertIsNone(getattr(ravo, name)._restype_, name)


class CallTest(unittest.TestCase):
    """Values through every kind of argument, result, callback and setting."""

    def test_version(self):
        self.assertEqual(ravo.RAVOGetVersion(), 0x01000504)

    def test_texts_and_structures(self):
        self.assertEqual(ravo.RAVOGetSerialNumber(), b"TR")
        record = ravo.RAVO_BUILTIN_RECORD()
        self.assertTrue(ravo.RAVOGetBuiltinRecord(118, ctypes.byref(record)))
        self.assertEqual((record.Name, record.SamplesPerPeriod, record.NumberOfSamples),
                         (b"MA1_125", 800, 8000))
        self.assertFalse(ravo.RAVOGetBuiltinRecord(119, ctypes.byref(record)))

    def test_headers(self):
        header = ravo.RAVOLoadDatabaseCTS_CSE(0, ravo.CTSCSE_NOISE_NONE)
        self.assertEqual(header.contents.RecordName, b"ANE20000")
        self.assertEqual([signal.Lead for signal in header.contents.signals], list(range(8)))
        self.assertEqual(header.contents.signals[7].Description, b"ECG V6")
        ravo.RAVOFreeECGHeader(header)

    def test_missing_file_is_a_false_result(self):
        self.assertFalse(ravo.RAVOLoadMITHeader("no such record.hea"))
        self.assertFalse(ravo.RAVOLoadMITHeader(None))

    def test_last_error_fills_a_buffer(self):
        text = ctypes.create_string_buffer(b"not touched")
        self.assertEqual(ravo.RAVOGetLastError(text, 0), ravo.RAVO_ERROR.NONE)
        self.assertEqual(text.value, b"not touched")
        self.assertEqual(ravo.RAVOGetLastError(text, len(text)), ravo.RAVO_ERROR.NONE)
        self.assertEqual(text.value, b"")

    def test_callback_sees_the_samples(self):
        self.assertTrue(ravo.RAVOLoadWaveform(ravo.WAVEFORM_TYPE.SQUARE, 1.0, 4.0))
        seen = []

        @ravo.RAVO_SIGNAL
        def take(time, leads, end):
            seen.append((time, leads[0], leads[11], end))

        self.assertTrue(ravo.RAVOGetWaveformSignal(0, 1, take))
        self.assertEqual(len(seen), 1001)
        self.assertEqual(seen[250], (0.25, 2.0, 2.0, False))
        self.assertEqual(seen[750], (0.75, -2.0, -2.0, False))
        self.assertEqual(seen[1000], (1.0, 0.0, 0.0, True))

    def test_amplitudes_are_corrected_in_place(self):
        amplitudes = (ctypes.c_double * 8)(-20.0, 0.5)
        self.assertTrue(ravo.RAVOLoadWaveformEx(0, 1.0, amplitudes))
        self.assertEqual(amplitudes[:3], [-10.0, 0.5, 0.0])

    def test_settings_can_be_set(self):
        self.assertEqual(ravo.g_pszRepository.value, b"c:\\Physionet")
        ravo.g_pszRepository.value = b"/tmp/edf"
        self.assertEqual(
            ctypes.c_char_p.in_dll(ravo.library, "g_pszRepository").value, b"/tmp/edf")
        ravo.g_WaveformType.value = ravo.WaveformType.EDF
        self.assertEqual(ctypes.c_int32.in_dll(ravo.library, "g_WaveformType").value, 7)


if __name__ == "__main__":
    unittest.main()
