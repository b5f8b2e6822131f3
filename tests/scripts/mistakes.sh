#!/usr/bin/env bash
# Who writes a delegate wrongly is told by the compiler what to write, by each that is installed.
# mistakes.sh SOURCE
set -euo pipefail
source=$(realpath "$1")
# shellcheck source=tests/scripts/common.sh
. "$(dirname "$0")/common.sh"

compilers=()
for compiler in g++ clang++; do
    ! command -v "$compiler" >/dev/null || compilers+=("$compiler")
done

# An interface as it should be, line by line: each of its mistakes is one line less, or another one.
class='class Greeter {'
greet='public: virtual QString greet(const QString &name) const = 0;'
forget='virtual void forget() = 0;'
take='virtual int take(std::unique_ptr<int> number) = 0;'
name='virtual const QString &name() = 0;'
destructor='virtual ~Greeter() {} };'
interface='Q_DECLARE_INTERFACE(Greeter, "test::Greeter")'
metatype='Q_DECLARE_METATYPE(Greeter *)'

# compile COMPILER CALL: a delegate, one line of which is `CALL`; what is said is in $folder/said.
compile() {
    {
        printf '%s\n' '#include <zdelegateof.h>' '#include <memory>' "$class" "$greet" "$forget" "$take" "$name" \
            "$destructor" "$interface" "$metatype" \
            'class GreeterDelegate : public ZDelegateOf<Greeter> { public: using ZDelegateOf::ZDelegateOf;' \
            'void calls() { const QString name; std::unique_ptr<int> number;' "$2" \
            'Q_UNUSED(name) Q_UNUSED(number) } };'
    } >"$folder/delegate.cpp"
    # shellcheck disable=SC2046
    "$1" -std=c++17 -fPIC -fsyntax-only -Wall -Wextra -I"$source/include" $(pkg-config --cflags Qt5Core) \
        "$folder/delegate.cpp" >"$folder/said" 2>&1
}

# says SENTENCE [CALL]: each compiler refuses, with this sentence, and with no other one of ours.
says() {
    local compiler
    for compiler in "${compilers[@]}"; do
        ! compile "$compiler" "${2:-}" || fail "$compiler takes: ${2:-no call}"
        grep -Fq -- "$1" "$folder/said" || { cat "$folder/said"; fail "$compiler does not say: $1"; }
        [ "$(grep -cE 'error: .*(ZDelegateOf<Interface>|call):' "$folder/said")" -le 1 ] ||
            { cat "$folder/said"; fail "$compiler says more than: $1"; }
    done
    count=$((count + 1))
}

count=0
for compiler in "${compilers[@]}"; do
    compile "$compiler" 'call(&Greeter::greet, {}, name); call(&Greeter::take, 0, std::move(number));' ||
        { cat "$folder/said"; fail "$compiler refuses what is right"; }
    [ ! -s "$folder/said" ] || { cat "$folder/said"; fail "$compiler warns of what is right"; }
done

forgotten='the neutral result is missing'
says "$forgotten" 'call(&Greeter::greet, name);'
says "$forgotten" 'call(&Greeter::take, std::move(number));'

misfit='these do not fit the operation'
says "$misfit" 'call(&Greeter::greet, {});'             # too few
says "$misfit" 'call(&Greeter::greet, {}, name, name);' # too many
says "$misfit" 'call(&Greeter::greet, name, name, 1);'
says "$misfit" 'call(&Greeter::greet, {}, 1);'          # of another type
says "$misfit" 'call(&Greeter::greet, 1, name);'        # a neutral result of another type
says "$misfit" 'call(&Greeter::forget, {});'            # a neutral result of nothing
says "$misfit" 'call(&Greeter::forget, 1);'
says "$misfit" 'call(&Greeter::take, 0, number);'       # not moved

says "the operation is none of the interface's" 'call(&QObject::deleteLater);'
says 'the operation returns a reference' 'call(&Greeter::name, {});'

destructor='};' says 'the interface has no virtual destructor'
metatype='' says 'Qt does not know the type of pointers to the interface'
interface='' says 'Q_DECLARE_INTERFACE' # in the name of what is compiled, or in its line

echo "ok: $count mistakes, by ${compilers[*]}"
