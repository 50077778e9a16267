import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.ResultSet;
import java.sql.Statement;
import java.util.Properties;

/** Reads every cell of a query: Read DATABASE < SQL. Prints DuckDB's version, cells and seconds. */
public final class Read {
    private static Object sink;

    private static long read(Connection connection, String sql) throws Exception {
        try (Statement statement = connection.createStatement(); ResultSet rows = statement.executeQuery(sql)) {
            int columns = rows.getMetaData().getColumnCount();
            long cells = 0;
            while (rows.next()) {
                for (int column = 1; column <= columns; column++) {
                    sink = rows.getObject(column);
                }
                cells += columns;
            }
            return cells;
        }
    }

    private static String getVersion(Connection connection) throws Exception {
        try (Statement statement = connection.createStatement();
                ResultSet rows = statement.executeQuery("SELECT version()")) {
            rows.next();
            return rows.getString(1);
        }
    }

    public static void main(String[] arguments) throws Exception {
        String sql = new String(System.in.readAllBytes(), "UTF-8");
        Properties properties = new Properties();
        properties.setProperty("duckdb.read_only", "true");
        properties.setProperty("threads", "1");
        try (Connection connection = DriverManager.getConnection("jdbc:duckdb:" + arguments[0], properties)) {
            String version = getVersion(connection);
            read(connection, "SELECT * FROM (" + sql + ") LIMIT 200000");
            long start = System.nanoTime();
            long cells = read(connection, sql);
            System.out.println(version + " " + cells + " " + (System.nanoTime() - start) / 1e9);
        }
    }
}
