import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.math.BigDecimal;
import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.ResultSet;
import java.sql.Statement;
import java.time.LocalDate;
import java.util.ArrayList;
import java.util.List;
import java.util.Properties;
import org.duckdb.DuckDBAppender;
import org.duckdb.DuckDBConnection;

/**
 * Appends the rows of a query to a table in memory, row by row: Append < STATEMENTS. Prints DuckDB's version, rows and
 * seconds. The statements are those of append.go.
 */
public final class Append {
    private static List<Object[]> read(Connection connection, String sql) throws Exception {
        try (Statement statement = connection.createStatement(); ResultSet rows = statement.executeQuery(sql)) {
            List<Object[]> all = new ArrayList<>();
            int columns = rows.getMetaData().getColumnCount();
            while (rows.next()) {
                Object[] row = new Object[columns];
                for (int column = 0; column < columns; column++) {
                    row[column] = rows.getObject(column + 1);
                }
                all.add(row);
            }
            return all;
        }
    }

    private static void appendValue(DuckDBAppender appender, Object value) throws Exception {
        if (value instanceof Long) {
            appender.append((long) (Long) value);
        } else if (value instanceof Integer) {
            appender.append((int) (Integer) value);
        } else if (value instanceof Short) {
            appender.append((short) (Short) value);
        } else if (value instanceof Double) {
            appender.append((double) (Double) value);
        } else if (value instanceof String) {
            appender.append((String) value);
        } else if (value instanceof BigDecimal) {
            appender.append((BigDecimal) value);
        } else {
            appender.append((LocalDate) value);
        }
    }

    private static void append(DuckDBConnection connection, String table, List<Object[]> rows) throws Exception {
        try (DuckDBAppender appender = connection.createAppender(table)) {
            for (Object[] row : rows) {
                appender.beginRow();
                for (Object value : row) {
                    appendValue(appender, value);
                }
                appender.endRow();
            }
        }
    }

    public static void main(String[] arguments) throws Exception {
        BufferedReader lines = new BufferedReader(new InputStreamReader(System.in, "UTF-8"));
        Properties properties = new Properties();
        properties.setProperty("threads", "1");
        try (Connection connection = DriverManager.getConnection("jdbc:duckdb:", properties);
                Statement statement = connection.createStatement()) {
            statement.execute(lines.readLine());
            List<Object[]> rows = read(connection, lines.readLine());
            DuckDBConnection duckdb = connection.unwrap(DuckDBConnection.class);
            append(duckdb, "warm_up", rows);
            long start = System.nanoTime();
            append(duckdb, "items", rows);
            double seconds = (System.nanoTime() - start) / 1e9;
            try (ResultSet stored = statement.executeQuery(lines.readLine())) {
                stored.next();
                System.out.println(stored.getString(1) + " " + stored.getLong(2) + " " + seconds);
            }
        }
    }
}
