"""Arrow streams of the built module, read in this process by pyarrow and by nanoarrow.

  readers_test.py EXPORT_LIBRARY MODULE
"""

import ctypes
import datetime
import decimal
import json
import sys
import tempfile
import unittest
import uuid
import warnings

import nanoarrow
import pyarrow
import pyarrow.compute
from nanoarrow.c_array_stream import CArrayStream

CLIENT, SERVER, STREAMING, RESULT = 1, 2, 3, 4
KINDS = (CLIENT, SERVER, STREAMING, RESULT)
UTC = datetime.timezone.utc
# What pyarrow makes of the value of each expression.
VALUES = [
    ("true", True),
    ("NULL::BOOLEAN", None),
    ("(-128)::TINYINT", -128),
    ("32767::SMALLINT", 32767),
    ("(-2147483648)::INTEGER", -2147483648),
    ("9223372036854775807::BIGINT", 9223372036854775807),
    ("255::UTINYINT", 255),
    ("65535::USMALLINT", 65535),
    ("4294967295::UINTEGER", 4294967295),
    ("18446744073709551615::UBIGINT", 18446744073709551615),
    ("(-2)::HUGEINT", (-2).to_bytes(16, "little", signed=True)),
    ("340282366920938463463374607431768211455::UHUGEINT", b"\xff" * 16),
    ("0.1::DOUBLE", 0.1),
    ("1.5::FLOAT", 1.5),
    ("12.34::DECIMAL(4,2)", decimal.Decimal("12.34")),
    ("(-9999999999999999999999999999.999999999)::DECIMAL(38,9)",
     decimal.Decimal("-9999999999999999999999999999.999999999")),
    ("'duck \U0001F986 é'", "duck \U0001F986 é"),
    ("'a' || chr(0) || 'b'", "a\0b"),
    ("'\\xAB\\x00'::BLOB", b"\xab\0"),
    ("'2024-01-31'::DATE", datetime.date(2024, 1, 31)),
    ("'23:59:59.999999'::TIME", datetime.time(23, 59, 59, 999999)),
    ("'2024-01-31 12:34:56.789012'::TIMESTAMP", datetime.datetime(2024, 1, 31, 12, 34, 56, 789012)),
    ("'2024-01-31 12:34:56'::TIMESTAMP_S", datetime.datetime(2024, 1, 31, 12, 34, 56)),
    ("'2024-01-31 12:34:56.789'::TIMESTAMP_MS", datetime.datetime(2024, 1, 31, 12, 34, 56, 789000)),
    ("'2024-01-31 12:34:56+02'::TIMESTAMPTZ", datetime.datetime(2024, 1, 31, 10, 34, 56, tzinfo=UTC)),
    ("'14 months 3 days 1 second'::INTERVAL", (14, 3, 1_000_000_000)),
    ("'a1b2c3d4-0000-4000-8000-00000000ffff'::UUID", uuid.UUID("a1b2c3d4-0000-4000-8000-00000000ffff")),
    ("'{\"a\": 1}'::JSON", '{"a": 1}'),
    ("'v1'::ENUM('v0', 'v1')", "v1"),
    ("NULL", None),
    ("[1, NULL, 3]", [1, None, 3]),
    ("[]::VARCHAR[]", []),
    ("[[1], NULL, []]", [[1], None, []]),
    ("{'a': 1, 'b': {'c': ['x', NULL]}}", {"a": 1, "b": {"c": ["x", None]}}),
    ("NULL::STRUCT(a INTEGER)", None),
    ("MAP {'k': 1, 'l': NULL}", [("k", 1), ("l", None)]),
    ("[1, 2, NULL]::INTEGER[3]", [1, 2, None]),
    ("union_value(name := 'x')::UNION(age INTEGER, name VARCHAR)", "x"),
    ("1.25::DECIMAL(3,2)::VARIANT", "1.25"),
    ("'text'::VARIANT", '"text"'),
    ("NULL::VARIANT", None),
]


class Readers(unittest.TestCase):
    library = None

    @classmethod
    def setUpClass(cls):
        cls.library = ctypes.CDLL(sys.argv[1])
        for name in ("open_database", "execute", "export_stream", "close_cursor", "close_database"):
            getattr(cls.library, name).restype = ctypes.c_char_p
        cls.call("open_database", sys.argv[2].encode())
        cls.folder = tempfile.TemporaryDirectory()
        cls.call("execute", f"SET temp_directory = '{cls.folder.name}/spill'".encode())

    @classmethod
    def call(cls, name, *arguments):
        error = getattr(cls.library, name)(*arguments)
        if error is not None:
            raise RuntimeError(error.decode())

    def setUp(self):
        self.call("execute", b"SET TimeZone = 'UTC'")

    def export(self, sql, kind, passed_rows, address):
        self.call("export_stream", sql.encode(), ctypes.c_int32(kind), ctypes.c_int64(passed_rows),
                  ctypes.c_void_p(address))

    def arrow(self, sql, kind=SERVER, passed_rows=0):
        record = ctypes.create_string_buffer(5 * ctypes.sizeof(ctypes.c_void_p))
        self.export(sql, kind, passed_rows, ctypes.addressof(record))
        return pyarrow.RecordBatchReader._import_from_c(ctypes.addressof(record))

    def nano(self, sql, kind=SERVER, passed_rows=0):
        stream = CArrayStream.allocate()
        self.export(sql, kind, passed_rows, stream._addr())
        return nanoarrow.ArrayStream(stream)

    def test_pyarrow_reads_the_value_of_every_type(self):
        for expression, expected in VALUES:
            with self.subTest(expression):
                for kind in KINDS:
                    table = self.arrow(f"SELECT {expression} AS c FROM range(3)", kind).read_all()
                    table.validate(full=True)
                    self.assertEqual(table.column_names, ["c"])
                    self.assertEqual(table["c"].to_pylist(), [expected] * 3)

    def test_both_readers_read_the_same_from_every_type_at_its_ends(self):
        names = [field["name"] for field in self.arrow("SELECT name FROM (DESCRIBE FROM test_all_types()) t(name)")
                 .read_all().to_pylist()]
        self.assertGreater(len(names), 50)
        for name in names:
            with self.subTest(name):
                sql = f'SELECT "{name}" AS c FROM test_all_types()'
                column = self.arrow(sql).read_all()["c"].combine_chunks()
                # Arrow has no 24:00:00, which is DuckDB's last time of a day.
                column.validate(full=name not in ("time", "time_ns"))
                self.assertEqual(len(column), 3)
                self.assertTrue(column.type.id == pyarrow.lib.Type_SPARSE_UNION or not column[2].is_valid)
                # A struct with one column, which pyarrow imports from nanoarrow. As text, because NaN equals nothing.
                again = pyarrow.array(self.nano(sql).read_all()).field("c")
                self.assertEqual(str(again), str(column))

    def test_both_readers_read_the_rows_after_the_current_record(self):
        for kind in KINDS:
            for passed in (0, 1, 2047, 2048, 4999, 5000):
                sql = "SELECT i, 'text ' || i AS t FROM range(5000) r(i)"
                rows = [{"i": i, "t": f"text {i}"} for i in range(passed, 5000)]
                self.assertEqual(self.arrow(sql, kind, passed).read_all().to_pylist(), rows)
                self.assertEqual(self.nano(sql, kind, passed).read_all().to_pylist(), rows)

    def test_both_readers_read_the_columns_of_no_rows(self):
        for kind in KINDS:
            table = self.arrow("SELECT 1 AS a, 'x' AS b WHERE false", kind).read_all()
            self.assertEqual((table.column_names, table.num_rows), (["a", "b"], 0))
            self.assertEqual(len(self.nano("SELECT 1 AS a WHERE false", kind).read_all()), 0)

    def test_both_readers_read_a_variant_as_json(self):
        sql = "SELECT [{'n': i, 't': 'row ' || i}::VARIANT, NULL] AS v FROM range(3000) r(i)"
        rows = self.arrow(sql).read_all()["v"].to_pylist()
        warnings.simplefilter("ignore", nanoarrow.iterator.UnregisteredExtensionWarning)
        self.assertEqual([json.loads(first) for first, _ in rows], [{"n": i, "t": f"row {i}"} for i in range(3000)])
        self.assertEqual({second for _, second in rows}, {None})
        self.assertEqual([row["v"] for row in self.nano(sql).read_all().to_pylist()], rows)

    def test_both_readers_read_more_than_the_memory_limit(self):
        rows = 3_000_000
        self.call("execute", b"SET threads = 2; SET memory_limit = '20MB'")
        sql = f"SELECT i, i * 3 AS t, i::DOUBLE / 2 AS d FROM range({rows}) r(i)"
        count = total = 0
        for batch in self.arrow(sql):
            count += batch.num_rows
            total += pyarrow.compute.sum(batch["t"]).as_py()
        self.assertEqual((count, total), (rows, 3 * rows * (rows - 1) // 2))
        self.assertEqual(sum(len(chunk) for chunk in self.nano(sql)), rows)
        self.call("close_cursor")
        self.call("execute", b"RESET memory_limit; RESET threads")

    def test_a_closed_cursor_ends_both_readers_with_the_text(self):
        text = "The cursor of this Arrow stream was closed"
        for kind in KINDS:
            reader = self.arrow("FROM range(100000)", kind)
            batch = reader.read_next_batch()
            self.call("close_cursor")
            with self.assertRaisesRegex(OSError, text):
                reader.read_next_batch()
            reader.close()
            self.assertEqual(batch.column(0)[2047].as_py(), 2047)
            stream = self.nano("FROM range(100000)", kind)
            self.call("close_cursor")
            with self.assertRaisesRegex(Exception, text):
                stream.read_all()

    def test_the_error_of_a_query_ends_both_readers(self):
        self.call("execute", b"SET threads = 1")
        sql = "SELECT CASE WHEN i = 3000000 THEN error('broken here') ELSE i END AS c FROM range(4000000) r(i)"
        with self.assertRaisesRegex(OSError, "broken here"):
            self.arrow(sql, STREAMING).read_all()
        with self.assertRaisesRegex(Exception, "broken here"):
            self.nano(sql, STREAMING).read_all()
        self.call("execute", b"RESET threads")

    @classmethod
    def tearDownClass(cls):
        # What was read outlives the database.
        record = ctypes.create_string_buffer(5 * ctypes.sizeof(ctypes.c_void_p))
        cls.call("export_stream", b"SELECT 'text' AS t FROM range(5000)", ctypes.c_int32(SERVER), ctypes.c_int64(0),
                 ctypes.c_void_p(ctypes.addressof(record)))
        reader = pyarrow.RecordBatchReader._import_from_c(ctypes.addressof(record))
        batch = reader.read_next_batch()
        cls.call("close_database")
        cls.folder.cleanup()
        if batch.column(0).to_pylist() != ["text"] * 2048:
            raise AssertionError("the array has changed")
        try:
            reader.read_next_batch()
        except OSError:
            return
        raise AssertionError("the stream of a closed database goes on")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
