#!/usr/bin/env python3
"""Writes the example configurations of this folder.

small.cfg  - two channels, a few tags: the shape of a first configuration.
plant.cfg  - a boiler house with its pumps, water treatment and ventilation,
             a few hundred tags with Russian names; plant.csv is its plain form.
modbus-demo.cfg - one real (not emulated) device on Modbus TCP 127.0.0.1:1502,
             the register map that scripts/modbus-sim.py --demo serves.
The .cfg files carry the run parameters (port 4840, anonymous access) so the
bundled gateway starts on them as they are. Re-run after changing this script.
"""
import os

HEADERS = {
    "CHANNEL": "CHANNEL;" + ";".join(str(i) for i in range(1, 15)),
    "DEVICE": "DEVICE;" + ";".join(str(i) for i in range(1, 8)),
    "GROUP": "GROUP;1;2;3",
    "TAG": "TAG;" + ";".join(str(i) for i in range(1, 18)),
}

TAIL = ("INIFILE\n\n[options]\nport = 4840\nlog = info\nallowanonimus = true\n"
        "derFile = \npemFile = \ntrustFolder = \n")


def scramble(text):
    # Every UTF-16 code unit keeps its high byte; the low byte becomes 255 minus itself.
    units = text.encode("utf-16-le")
    out = bytearray(units)
    for i in range(0, len(out), 2):
        out[i] = 255 - out[i]
    return out.decode("utf-16-le")


def serial(name, com, baud=9600, protocol="MODBUS RTU"):
    return f";{name};COM-порт;{protocol};500;3;0;{com};{baud};8;1;Нет;Нет;Нет;Нет"


def tcp(name, ip, port, timeout=1000):
    return f";{name};TCP-соединение;MODBUS TCP;{timeout};3;0;{ip};{port};5000"


def device(name, addr, emulation=True):
    return f";{name};{addr};{'Да' if emulation else 'Нет'};125;2000;0;Да"


def group(name, rate, unit="мс"):
    return f";{name};{rate};{unit}"


def analog(name, addr, src_max, dst_min, dst_max, period):
    # A 4-20 mA input scaled from raw counts to engineering units; sine emulation
    # with a period of 1 to 60 seconds.
    period = 1 + (period - 1) % 60
    return (f";{name};Входной регистр;{addr};0;0;Да;;;Вещ32;AB CD;Линейная шкала;0;{src_max};"
            f"{dst_min};{dst_max};Синусоида;{period}")


def setpoint(name, addr, value, val_type="Цел16", order="AB"):
    return f";{name};Выходной регистр;{addr};0;0;Да;Да;Одиночная;{val_type};{order};Нет;;;;;Константа;{value}"


def factor(name, addr, k):
    return f";{name};Входной регистр;{addr};0;0;Да;;;Цел16;AB;Множитель;{k};;;;Случайное число"


def discrete_in(name, addr, const=None):
    emul = f"Константа;{const}" if const is not None else "Случайное число"
    return f";{name};Входное состояние;{addr};0;0;Да;;;;;;;;;;{emul}"


def coil(name, addr):
    return f";{name};Выходное состояние;{addr};0;0;Да;Да;Одиночная;;;;;;;;Константа;0"


def write_rows(tree):
    rows = []
    for ch_row, devices in tree:
        rows += [HEADERS["CHANNEL"], ch_row]
        for dev_row, groups in devices:
            rows += [HEADERS["DEVICE"], dev_row]
            for grp_row, tags in groups:
                rows += [HEADERS["GROUP"], grp_row]
                if tags:
                    rows.append(HEADERS["TAG"])
                    rows += tags
    return "\n".join(rows) + "\n"


def small():
    tags = [
        ";Tag_0;Входной регистр;1;0;0;Да;;;Вещ32;BA DC;Нет;;;;;Константа;0",
        ";Tag_1;Выходной регистр;3;0;0;Да;Да;Групповая;Цел16;AB;Линейная шкала;0;100;0;10;Синусоида;60",
        ";Tag_2;Выходное состояние;5;0;0;Да;Да;Одиночная;;;;;;;;Случайное число",
    ]
    return [
        (serial("Channel_0", 1), [(device("Device_0", 1), [(group("Group_0", 50), tags)])]),
        (tcp("Channel_1", "127.0.0.1", 502), []),
    ]


def boiler(n):
    base = 100 * n
    analogs = [
        analog(f"Температура_подачи_К{n}", base + 1, 27648, 0, 150, 120),
        analog(f"Температура_обратки_К{n}", base + 3, 27648, 0, 150, 150),
        analog(f"Давление_в_котле_К{n}", base + 5, 27648, 0, 16, 90),
        analog(f"Расход_газа_К{n}", base + 7, 27648, 0, 400, 60),
        analog(f"Разрежение_в_топке_К{n}", base + 9, 27648, -50, 50, 45),
        analog(f"Температура_дымовых_газов_К{n}", base + 11, 27648, 0, 300, 200),
        analog(f"Уровень_O2_К{n}", base + 13, 27648, 0, 21, 75),
    ]
    states = [discrete_in(f"Горелка_в_работе_К{n}", base + 1, 1),
              discrete_in(f"Пламя_есть_К{n}", base + 2, 1),
              discrete_in(f"Авария_котла_К{n}", base + 3, 0),
              discrete_in(f"Низкий_уровень_воды_К{n}", base + 4, 0),
              discrete_in(f"Высокое_давление_газа_К{n}", base + 5, 0),
              discrete_in(f"Дверь_топки_открыта_К{n}", base + 6)]
    setpoints = [setpoint(f"Уставка_температуры_К{n}", base + 40, 85),
                 setpoint(f"Уставка_давления_К{n}", base + 41, 6),
                 setpoint(f"Мощность_горелки_К{n}", base + 42, 70),
                 coil(f"Пуск_котла_К{n}", base + 20),
                 coil(f"Сброс_аварии_К{n}", base + 21)]
    return (device(f"Котёл_{n}", n), [(group("Аналоговые", 500), analogs),
                                      (group("Дискретные", 200), states),
                                      (group("Уставки", 1, "с"), setpoints)])


def pump(n):
    base = 200 + 20 * n
    tags = [analog(f"Ток_двигателя_Н{n}", base + 1, 27648, 0, 60, 30),
            analog(f"Частота_Н{n}", base + 3, 27648, 0, 50, 40),
            analog(f"Давление_на_выходе_Н{n}", base + 5, 27648, 0, 10, 25),
            factor(f"Наработка_часов_Н{n}", base + 7, 0.1),
            discrete_in(f"Насос_в_работе_Н{n}", base + 1, 1),
            discrete_in(f"Перегрев_двигателя_Н{n}", base + 2, 0),
            coil(f"Пуск_насоса_Н{n}", base + 10),
            setpoint(f"Задание_частоты_Н{n}", base + 12, 42.5, "Вещ32", "AB CD")]
    return tags


def modbus_demo():
    # Must match animate() of scripts/modbus-sim.py.
    fast = [
        ";Температура;Входной регистр;1;0;0;Да;;;Вещ32;AB CD;Нет;;;;;Константа;0",
        ";Давление;Входной регистр;3;0;0;Да;;;Вещ32;CD AB;Нет;;;;;Константа;0",
        ";Флаг_0;Входной регистр;5;0;0;Да;;;Бит0;;;;;;;Константа;0",
        ";Флаг_3;Входной регистр;5;0;0;Да;;;Бит3;;;;;;;Константа;0",
        ";Авария;Входное состояние;1;0;0;Да;;;;;;;;;;Константа;0",
    ]
    slow = [
        ";Счётчик;Выходной регистр;1;0;0;Да;Да;Групповая;Цел32;AB CD;Нет;;;;;Константа;0",
        ";Уставка;Выходной регистр;10;0;0;Да;Да;Одиночная;Цел16(знак);AB;Нет;;;;;Константа;0",
        ";Насос;Выходное состояние;1;0;0;Да;Да;Одиночная;;;;;;;;Константа;0",
    ]
    return [(tcp("Стенд", "127.0.0.1", 1502, 500), [
        (device("Котёл", 1, emulation=False), [(group("Быстрая", 200), fast), (group("Счёт", 1, "с"), slow)])])]


def plant():
    boilers = (serial("Котельная_RS485", 1, 19200), [boiler(n) for n in range(1, 5)])
    pumps = (tcp("Насосная_станция", "127.0.0.1", 502), [
        (device("ПЛК_насосов", 1), [(group(f"Насос_{n}", 250), pump(n)) for n in range(1, 9)]),
        (device("Счётчик_тепла", 2), [(group("Учёт", 5, "с"), [
            analog("Тепловая_мощность", 1, 27648, 0, 5, 600),
            analog("Расход_теплоносителя", 3, 27648, 0, 120, 300),
            factor("Накопленная_энергия_Гкал", 5, 0.01),
            analog("Температура_прямой_сети", 7, 27648, 0, 150, 900),
            analog("Температура_обратной_сети", 9, 27648, 0, 150, 900)])]),
    ])
    water = (serial("Водоподготовка", 2), [
        (device("Умягчитель", 10), [(group("Параметры", 1, "с"), [
            analog(f"Жёсткость_воды_{i}", 20 + 2 * i, 27648, 0, 10, 300 + i) for i in range(1, 9)] + [
            discrete_in(f"Регенерация_фильтра_{i}", 30 + i) for i in range(1, 9)])]),
        (device("Деаэратор", 11), [(group("Параметры", 2, "с"), [
            analog("Уровень_в_баке", 1, 27648, 0, 100, 240),
            analog("Давление_пара", 3, 27648, 0, 2, 180),
            analog("Температура_воды", 5, 27648, 0, 120, 360),
            setpoint("Уставка_уровня", 40, 60),
            coil("Подпиточный_клапан", 10)])]),
    ])
    zones = []
    for z in range(1, 21):
        zones.append((group(f"Зона_{z}", 1, "с"), [
            analog(f"Температура_воздуха_З{z}", 10 * z + 1, 27648, -40, 60, 600 + 10 * z),
            analog(f"Влажность_З{z}", 10 * z + 3, 27648, 0, 100, 900),
            analog(f"Положение_заслонки_З{z}", 10 * z + 5, 27648, 0, 100, 120),
            setpoint(f"Уставка_температуры_З{z}", 10 * z + 7, 21),
            discrete_in(f"Вентилятор_в_работе_З{z}", 10 * z + 1, 1),
            discrete_in(f"Фильтр_засорён_З{z}", 10 * z + 2, 0),
            coil(f"Пуск_вентилятора_З{z}", 10 * z + 3)]))
    ventilation = (tcp("Вентиляция", "127.0.0.1", 503), [(device("Контроллер_ОВК", 1), zones)])
    return [boilers, pumps, water, ventilation]


def save(name, tree):
    text = write_rows(tree)
    here = os.path.dirname(os.path.abspath(__file__))
    with open(os.path.join(here, name + ".csv"), "w", encoding="utf-8", newline="\n") as f:
        f.write(text)
    with open(os.path.join(here, name + ".cfg"), "w", encoding="utf-8", newline="") as f:
        f.write(scramble(text + TAIL))


if __name__ == "__main__":
    save("small", small())
    save("plant", plant())
    save("modbus-demo", modbus_demo())
