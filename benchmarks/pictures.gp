# Draws what scripts/bench has measured: gnuplot -c benchmarks/pictures.gp DATA COUNTS PICTURES
#
#   latency.svg    how many of the messages arrived within a time, for each program
#   cost.svg       processor time a megabyte, by the rate of the line, for each program
#   steps.svg      where the instructions of a command go
data = ARG1
counts = ARG2
pictures = ARG3

programs = system(sprintf("sed -n 's/^# //p' '%s/line-to-PC-x1.dat'", data))
set key noenhanced
set grid
set style data lines
set linetype 1 lw 2 lc rgb "#b02318"
set linetype 2 lw 2 lc rgb "#555555"
set linetype 3 lw 2 lc rgb "#1b6ca8"
set linetype 4 lw 2 lc rgb "#5aa9d6"
set linetype 5 lw 2 lc rgb "#3a7d44"

set terminal svg size 900,760 font "sans-serif,13" background "white"
set output pictures."/latency.svg"
set multiplot layout 2,2
set logscale x
set xrange [0.05:50]
set yrange [0:100]
set xlabel "ms"
set ylabel "% of messages within"
do for [pace in "1 8"] {
    do for [way in "line-to-PC PC-to-line"] {
        file = sprintf("%s/%s-x%s.dat", data, way, pace)
        set title sprintf("%s, %s", system("echo ".way." | tr - ' '"), \
            pace eq "1" ? "at the pace of the line" : "at 8 times the pace")
        set key bottom right
        plot for [i = 1:words(programs)] file index i - 1 using 1:($2 * 100) title word(programs, i)
    }
}
unset multiplot
unset logscale

set terminal svg size 700,420 font "sans-serif,13" background "white"
set output pictures."/cost.svg"
set title "Processor time, line to PC"
set xlabel "rate, times that of a line with 115200 bits/s"
set ylabel "ms a megabyte"
set logscale x 2
set xrange [0.9:72]
set logscale y
set yrange [50:*]
set key top right
set style data linespoints
plot for [i = 1:words(programs)] data."/cost.dat" using 1:(column(i + 1)) title word(programs, i)
unset logscale

set output pictures."/steps.svg"
set title "Instructions of a command"
set xlabel "instructions"
unset ylabel
unset grid
set style data boxes
set key center right
set yrange [7.8:-0.8]
set xrange [0:*]
set boxwidth 0.38
step(title) = sprintf("< sed -n 's/^ *\\([0-9]*\\) step of %s: \\(.*\\)/\\1 \"\\2\"/p' '%s'", title, counts)
plot step("one command") using (0.5 * $1):($0 - 0.2):(0.5 * $1):(0.19):ytic(2) \
        with boxxyerror fs solid 0.8 lc 1 title "one command", \
     step("one of fifty") using (0.5 * $1):($0 + 0.2):(0.5 * $1):(0.19) \
        with boxxyerror fs solid 0.8 lc 3 title "one of fifty in a read"
