# Makes the header of the pins, named by the variable `header`, from their table: a macro for each
# pin, and one that lists them all with the name of another macro that is applied to each.
/^#/ || NF == 0 { next }
{
  pins = pins sprintf("#define PIN_%s '%s', %d\n", $1, $2, $3)
  list = list sprintf(" APPLY(%s, '%s', %d, PIN_%s)", $1, $2, $3, toupper($4))
}
END {
  print "/* Made from pins.txt by pins.awk. */" >header
  print "#ifndef PINS_H\n#define PINS_H\n\n" pins >header
  print "#define PIN_IN 0\n#define PIN_OUT 1" >header
  print "#define FOR_EACH_PIN(APPLY)" list "\n\n#endif" >header
}
