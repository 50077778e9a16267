# bash completion for mduckdb-host

_mduckdb_host() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} command= word i
    local commands='call version probe create sql backup restore snapshot shell help'
    local options='--module --format --all --help --version --memory-mb --threads --seconds --temp-directory --allow-directory'

    # bash splits --format=csv into three words.
    if [[ $cur == = ]]; then
        cur=
    elif [[ $prev == = ]]; then
        prev=${COMP_WORDS[COMP_CWORD - 2]}
    fi

    case $prev in
        --format) mapfile -t COMPREPLY < <(compgen -W 'table csv json jsonl markdown line' -- "$cur"); return ;;
        --cursor) mapfile -t COMPREPLY < <(compgen -W 'server client' -- "$cur"); return ;;
        --module) mapfile -t COMPREPLY < <(compgen -W 'mduckdb mduckdb_casts' -f -- "$cur"); return ;;
        --block-size) mapfile -t COMPREPLY < <(compgen -W '16384 262144' -- "$cur"); return ;;
        --temp-directory | --allow-directory) mapfile -t COMPREPLY < <(compgen -d -- "$cur"); return ;;
        --param | --storage-version | --memory-mb | --threads | --seconds) return ;;
    esac

    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        case $word in
            --module | --format | --memory-mb | --threads | --seconds | --temp-directory | --allow-directory)
                ((i++))
                [[ ${COMP_WORDS[i]} == = ]] && ((i++))
                ;;
            -*) ;;
            *) command=$word; break ;;
        esac
    done

    case $command in
        '') mapfile -t COMPREPLY < <(compgen -W "$commands $options" -- "$cur"); return ;;
        create) options+=' --block-size --storage-version --force' ;;
        restore) options+=' --force' ;;
        backup) options+=' --verify' ;;
        shell) options+=' --bail --no-init' ;;
        help) mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$cur"); return ;;
        sql) options+=' --cursor --read-only --param --params-file' ;;
        call)
            if ((COMP_CWORD == i + 1)); then
                mapfile -t COMPREPLY < <(compgen -W \
                    'fetch_parquet parquet_schema parquet_metadata parquet_count fetch_duckdb' -- "$cur")
                return
            fi
            ;;
    esac
    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
    fi
}
complete -o filenames -F _mduckdb_host mduckdb-host
