#!/usr/bin/env -S zsh -f
# Prints what zsh offers for the last word of a command line: zsh_completion.zsh SCRIPT WORD... Types the line into a zsh
# of its own, where a key records the matches in place of showing them.
zmodload zsh/zpty
typeset -r script=$1
shift

export WORK=$(mktemp -d)
trap 'rm -rf $WORK' EXIT
cp $script $WORK/_kivclaim

cat >$WORK/setup <<'SETUP'
PROMPT= RPROMPT=
unsetopt zle_bracketed_paste
fpath=($WORK $fpath)
autoload -Uz compinit
compinit -u -D
zstyle ':completion:*' list-grouped false
compadd() {
    # A call that only asks, on the way to the matches.
    if (( ${argv[(I)-[a-zA-Z]#[OAD]]} )); then
        builtin compadd "$@"
        return
    fi
    local -a matches
    builtin compadd -A matches "$@"
    (( ! $#matches )) || print -rl -- $matches >>$WORK/matches
    builtin compadd "$@"
}
record() {
    _main_complete
    compstate[insert]= compstate[list]=
    print -n '<DONE>'
}
zle -C record complete-word record
bindkey '^I' record
# Only now keys are read one by one.
zle-line-init() { print -n '<READY>' }
zle -N zle-line-init
SETUP

# exec: otherwise a copy of this shell stays in between and runs the trap as well.
zpty completing exec zsh -f -i
zpty -w completing "source $WORK/setup"
zpty -r -m completing output '*<READY>*' || exit 1
zpty -w -n completing "${(j: :)@}"$'\t'
zpty -r -m completing output '*<DONE>*' || exit 1
zpty -d completing
[[ ! -e $WORK/matches ]] || cat $WORK/matches
