# Ratios to the floor, on a logarithmic scale. The picture has a white ground of its own, so that it
# can be read on dark pages too.

set terminal svg noenhanced size 900,1080 font "sans-serif,13" background "#ffffff"
set encoding utf8
set title "Time, in times of the bare primitives of each operation" offset -12 textcolor "#24292f"
set border 1 linecolor "#57606a"
set logscale x
set xrange [0.03:300]
set xtics nomirror ("0.1" 0.1, "0.5" 0.5, "1" 1, "2" 2, "10" 10, "100" 100)
set grid xtics linecolor "#d0d7de" linetype 1
set ytics nomirror scale 0
set offsets 0, 0, 0.7, 0.7
set style fill solid noborder
set key outside bottom center horizontal samplen 2
half = 0.32

plot data index 0 using (1):0:(1):3:($1-half):($1+half):ytic(2) \
        with boxxyerror linecolor "#0969da" title "emsutil", \
     data index 1 using 2:1 with points pointtype 7 pointsize 0.45 linecolor "#d4351c" title "others", \
     data index 0 using 4:($1-half):(0):(2*half) with vectors nohead linewidth 1.6 \
        linecolor "#24292f" title "goal"
