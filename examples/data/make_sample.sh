#!/usr/bin/env bash
# Recreates sample.parquet with mduckdb-host. The rows come from a hash of their number, so that every run creates
# the same ones.
#   examples/data/make_sample.sh [MDUCKDB_HOST]
set -euo pipefail
host=${1:-mduckdb-host}
out=$(dirname "${BASH_SOURCE[0]}")/sample.parquet

"$host" sql :memory: "
COPY (
    WITH numbers AS (SELECT i, hash(i) AS h FROM range(1, 301) AS t(i)),
    people AS (
        SELECT i, h,
               ['Anna', 'Björn', 'Chloé', 'Dmitri Иванов', 'Emil', 'Fatima', 'Grzegorz Żak', '花子', 'İpek', 'João',
                'Νίκος', '민준', 'Zoë 🦆'][1 + (h % 13)::INTEGER] AS first_name
        FROM numbers)
    SELECT i::INTEGER AS id,
           first_name || ' ' || i AS name,
           CASE WHEN h % 17 = 0 THEN NULL
                ELSE ['DE', 'FR', 'PL', 'JP', 'TR', 'BR', 'GR', 'KR', 'SE'][1 + ((h // 13) % 9)::INTEGER] END AS country,
           DATE '2019-01-01' + ((h // 97) % 1800)::INTEGER AS signup,
           (((h // 31) % 2000000)::BIGINT / 100 - 2500)::DECIMAL(12, 2) AS balance,
           CASE WHEN h % 11 = 3 THEN NULL
                ELSE TIMESTAMP '2024-01-01 00:00:00' + to_milliseconds(((h // 7) % 20000000000)::BIGINT) END AS last_login,
           h % 5 <> 0 AS active,
           CASE WHEN h % 19 = 4 THEN NULL
                ELSE list_filter(['new', 'vip', 'naïve', 'trial', '東京'], lambda tag, n: ((h // (n * 3)::UBIGINT) % 3) = 0)
           END AS tags
    FROM people ORDER BY id
) TO '${out//\'/\'\'}' (FORMAT parquet, COMPRESSION zstd)"
