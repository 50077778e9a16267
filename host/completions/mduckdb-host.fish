# fish completion for mduckdb-host

set -l commands call version probe create sql backup restore snapshot shell help
set -l procedures fetch_parquet parquet_schema parquet_metadata parquet_count fetch_duckdb

complete -c mduckdb-host -l module -r -a 'mduckdb mduckdb_casts' -d 'Module to load'
complete -c mduckdb-host -l format -x -a 'table csv json jsonl markdown line' -d 'Output format'
complete -c mduckdb-host -l all -d 'Print all rows and columns'
complete -c mduckdb-host -l memory-mb -x -d 'Memory of a call of a procedure in megabytes'
complete -c mduckdb-host -l threads -x -d 'Threads of a call of a procedure'
complete -c mduckdb-host -l seconds -x -d 'Seconds until a call of a procedure is cut'
complete -c mduckdb-host -l temp-directory -x -a '(__fish_complete_directories)' -d 'Folder for temporary files of procedures'
complete -c mduckdb-host -l allow-directory -x -a '(__fish_complete_directories)' -d 'Folder that procedures may read'
complete -c mduckdb-host -s h -l help -d 'Help'
complete -c mduckdb-host -s V -l version -d 'Print the version'

complete -c mduckdb-host -f -n "not __fish_seen_subcommand_from $commands" -a call -d 'Call a procedure'
complete -c mduckdb-host -f -n "not __fish_seen_subcommand_from $commands" -a version -d 'Print the versions'
complete -c mduckdb-host -f -n "not __fish_seen_subcommand_from $commands" -a probe -d 'Check which files are databases'
complete -c mduckdb-host -f -n "not __fish_seen_subcommand_from $commands" -a create -d 'Create a database file'
complete -c mduckdb-host -f -n "not __fish_seen_subcommand_from $commands" -a sql -d 'Run SQL'
complete -c mduckdb-host -f -n "not __fish_seen_subcommand_from $commands" -a backup -d 'Back up a database'
complete -c mduckdb-host -f -n "not __fish_seen_subcommand_from $commands" -a restore -d 'Restore a backup or a snapshot'
complete -c mduckdb-host -f -n "not __fish_seen_subcommand_from $commands" -a snapshot -d 'Copy and check a database'
complete -c mduckdb-host -f -n '__fish_seen_subcommand_from backup' -l verify -d 'Compare the backup with the database'
complete -c mduckdb-host -f -n "not __fish_seen_subcommand_from $commands" -a shell -d 'Run SQL interactively'
complete -c mduckdb-host -f -n "not __fish_seen_subcommand_from $commands" -a help -d 'Describe a command'
complete -c mduckdb-host -f -n '__fish_seen_subcommand_from help' -a "$commands"

complete -c mduckdb-host -n '__fish_seen_subcommand_from shell' -l bail -d 'End a script at its first error'
complete -c mduckdb-host -n '__fish_seen_subcommand_from shell' -l no-init -d 'Do not run the start-up file'
complete -c mduckdb-host -n '__fish_seen_subcommand_from call' -a "$procedures"
complete -c mduckdb-host -n '__fish_seen_subcommand_from create' -l block-size -x -a '16384 262144' -d 'Block size in bytes'
complete -c mduckdb-host -n '__fish_seen_subcommand_from create' -l storage-version -x -d 'Oldest DuckDB that must read it'
complete -c mduckdb-host -n '__fish_seen_subcommand_from create restore' -l force -d 'Replace an existing database'
complete -c mduckdb-host -n '__fish_seen_subcommand_from sql' -l cursor -x -a 'server client' -d 'Where the rows are kept'
complete -c mduckdb-host -n '__fish_seen_subcommand_from sql' -l read-only -d 'Open read-only'
complete -c mduckdb-host -n '__fish_seen_subcommand_from sql' -l param -x -d 'Value of a parameter'
complete -c mduckdb-host -n '__fish_seen_subcommand_from sql' -l params-file -r -d 'File with parameter rows'
