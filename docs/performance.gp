# Draws performance.svg from the table that bench/run prints. Run it in docs:
#   ../bench/run >figures.txt && gnuplot performance.gp
set terminal svg size 960,440 font "sans,13" background "white"
set output "performance.svg"
set multiplot layout 1,2
set border 3
set tics nomirror
set grid
bare = "#555555"
library = "#0060ad"
peer = "#dd7711"

set title "What a certificate of a count costs"
set logscale x
set xlabel "certificates in the chain"
set ylabel "microseconds for each"
set yrange [0:]
set key top left
set format x "%.0f"
counts = "<sed -n 's/^count-//p' figures.txt"
plot counts using 1:($3 / $1 / 1000) with linespoints lw 5 pt 7 lc rgb bare title "bare calls", \
    counts using 1:($4 / $1 / 1000) with linespoints lw 2 pt 7 ps 0.5 lc rgb library \
        title "libtesra\\_common", \
    counts using 1:($5 / $1 / 1000) with linespoints lw 2 pt 7 lc rgb peer title "GnuTLS"

set title "Time, as a ratio to the bare calls"
unset ylabel
set xlabel "faster than the bare calls  |  slower"
set xrange [0.01:10]
set xtics ("1/100" 0.01, "1/10" 0.1, "1" 1, "10" 10)
set yrange [19:-1]
set ytics noenhanced
set style fill solid
unset key
set arrow from 1, graph 0 to 1, graph 1 nohead lc rgb bare lw 2 front
plot "figures.txt" using (1):0:(1):7:($0 - 0.4):($0):ytic(1) with boxxyerror lc rgb library, \
    "" using (1):0:(1):8:($0):($0 + 0.4) with boxxyerror lc rgb peer
unset multiplot
